#include <gtest/gtest.h>

#include "support/Net.h"

namespace {

TEST(BaseRunner, SaysWhatIsWrongWithTensorsAndTouchesNothing) {
    RawRunnerBuilder* builder = new RawRunnerBuilder(nullptr);
    const nolk::TensorShape shape{1, 2, 1, 1, 1};
    nolk::TensorX* x = builder->input(shape);
    nolk::TensorX* outputs[] = {builder->relu(x)};
    nolk::Runner* runner = builder->build(outputs, 1);
    builder->destroy();
    EXPECT_FALSE(runner->isThreadSafe());

    float in[2] = {-1, 2}, out[2] = {7, 7};
    nolk::Tensor good{shape, in}, result{shape, out}, noData{shape, nullptr}, otherDims{{1, 2, 1, 1, 3}, in};
    const struct {
        const char* claim;
        nolk::Tensor* inputs;
        int inputCount;
        nolk::Tensor* outputs;
        int outputCount;
        const char* message;
    } calls[] = {
        {"no inputs", nullptr, 1, &result, 1, "tensors is null\n"},
        {"input count", &good, 2, &result, 1, "tensor count wrong. 2 != 1\n"},
        {"only dims differ", &otherDims, 1, &result, 1,
         "tensor shape wrong. (1, 2, 1, 1)[3] != (1, 2, 1, 1)[1](expected)\n"},
        {"no input data", &noData, 1, &result, 1, "tensors[0] is null\n"},
        {"no outputs", &good, 1, nullptr, 1, "tensors is null\n"},
        {"output count", &good, 1, &result, 0, "tensor count wrong. 0 != 1\n"},
        {"no output data", &good, 1, &noData, 1, "tensors[0] is null\n"},
        {"inputs come first", &noData, 1, nullptr, 5, "tensors[0] is null\n"},
    };
    for (const auto& c : calls) {
        SCOPED_TRACE(c.claim);
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
