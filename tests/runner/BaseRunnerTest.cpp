#include <gtest/gtest.h>

#include "builder/RawRunnerBuilder.h"
#include "support/Net.h"

namespace {

TEST(BaseRunner, SaysWhatIsWrongWithTensorsAndTouchesNothing) {
    RawRunnerBuilder* builder = new RawRunnerBuilder(nullptr);
    const nolk::TensorShape shape{1, 2, 1, 1, 1};
    nolk::TensorX* y = builder->relu(builder->input(shape));
    nolk::Runner* runner = builder->build(&y, 1);
    builder->destroy();
    EXPECT_FALSE(runner->isThreadSafe());

    float in[2] = {-1, 2}, out[2] = {7, 7};
    nolk::Tensor good{shape, in}, result{shape, out}, noData{shape, nullptr}, otherDims{{1, 2, 1, 1, 3}, in};
    const struct {
        nolk::Tensor* inputs;
        int inputCount;
        nolk::Tensor* outputs;
        int outputCount;
        const char* message;
    } calls[] = {
        {nullptr, 1, &result, 1, "tensors is null\n"},
        {&good, 2, &result, 1, "tensor count wrong. 2 != 1\n"},
        {&otherDims, 1, &result, 1, "tensor shape wrong. (1, 2, 1, 1)[3] != (1, 2, 1, 1)[1](expected)\n"},
        {&noData, 1, &result, 1, "tensors[0] is null\n"},
        {&good, 1, nullptr, 1, "tensors is null\n"},
        {&good, 1, &result, 0, "tensor count wrong. 0 != 1\n"},
        {&good, 1, &noData, 1, "tensors[0] is null\n"},
        {&noData, 1, nullptr, 5, "tensors[0] is null\n"},  // inputs come first
    };
    for (const auto& c : calls) {
        SCOPED_TRACE(&c - calls);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(runner->run(c.inputs, c.inputCount, c.outputs, c.outputCount));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
        EXPECT_EQ(out[0], 7);
    }
    EXPECT_TRUE(runner->run(&good, 1, &result, 1));
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 2);
    runner->destroy();
}

}  // namespace
