#include "memory/FloatKeeper.h"

#include <gtest/gtest.h>

#include "layers/ownedFloats.h"
#include "memory/optionalInterface.h"
#include "support/CallLog.h"

namespace {

TEST(FloatArrays, AnArrayThatIsUsedTwiceIsCopiedTheSecondTime) {
    FloatArrays given;
    float* const floats = given.add(zeroedFloats(2));
    floats[1] = 5.0f;
    const FloatBuffer first = ownedFloats(floats, 2, &given), second = ownedFloats(floats, 2, &given);
    EXPECT_EQ(first.get(), floats);
    ASSERT_NE(second.get(), floats);
    EXPECT_EQ(second[1], 5.0f);
}

// Its slots stand behind a null pointer.
TEST(FloatKeeper, ABuilderWithoutTypeInformationIsNone) {
    CallLog typed;
    EXPECT_EQ(optionalInterface<FloatKeeper>(typed), nullptr);
    const void* const table[] = {nullptr, nullptr, nullptr};
    const void* const* untyped = table + 2;
    EXPECT_EQ(optionalInterface<FloatKeeper>(*reinterpret_cast<nolk::RunnerBuilder*>(&untyped)), nullptr);
}

}  // namespace
