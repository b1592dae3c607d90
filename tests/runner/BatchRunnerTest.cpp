#include "runner/BatchRunner.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <stdexcept>
#include <thread>

#include "builder/RawRunnerBuilder.h"
#include "support/values.h"

namespace {

const nolk::TensorShape kIn{1, 3, 1, 1, 1};
const nolk::TensorShape kOut{1, 2, 1, 1, 1};

// Computes (sum, product) of three values per sample, and keeps account of its calls.
class CountingRunner final : public nolk::Runner {
public:
    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override {
        EXPECT_FALSE(busy_.exchange(true)) << "two threads in a runner for one";
        ++calls;
        const bool fails = failOnCall > 0 && calls == failOnCall;
        EXPECT_EQ(inputCount + outputCount, 2);
        EXPECT_EQ(inputs[0].shape.n, batch);
        for (int i = 0; i < batch; ++i) {
            const float* x = inputs[0].data + i * 3;
            outputs[0].data[i * 2] = x[0] + x[1] + x[2];
            outputs[0].data[i * 2 + 1] = x[0] * x[1] * x[2];
        }
        std::this_thread::sleep_for(duration);
        busy_ = false;
        if (throwing && fails) throw std::runtime_error("broken");
        return !fails;
    }
    void destroy() override { ++destroyed; }

    int batch = 1;
    std::chrono::microseconds duration{0};
    bool throwing = false;
    int failOnCall = 0;
    std::atomic<int> calls{0};
    int destroyed = 0;

private:
    std::atomic<bool> busy_{false};
};

// One caller's tensors, and what they should come to.
class Call {
public:
    Call(int items, std::uint32_t seed)
        : in_(Values(seed).reals(static_cast<std::size_t>(items) * 3)), out_(static_cast<std::size_t>(items) * 2) {
        input = {kIn, in_.data()};
        output = {kOut, out_.data()};
        input.shape.n = output.shape.n = items;
    }
    bool run(nolk::Runner* runner) { return runner->run(&input, 1, &output, 1); }
    int rightItems() const {
        int right = 0;
        for (const float *x = in_.data(), *y = out_.data(); y < out_.data() + out_.size(); x += 3, y += 2)
            right += y[0] == x[0] + x[1] + x[2] && y[1] == x[0] * x[1] * x[2];
        return right;
    }

    nolk::Tensor input, output;

private:
    std::vector<float> in_, out_;
};

// Calls f(0), f(1), ... at the same time; returns when all have returned.
template <typename Function>
void inThreads(int count, Function f) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(f, t);
    for (std::thread& t : threads) t.join();
}

TEST(BaseBatchRunner, RunsItemByItemUntilOneFails) {
    CountingRunner inner;
    BaseBatchRunner* wrapped = new BaseBatchRunner(&inner, 1);
    Call four(4, 1), failing(4, 2), none(0, 3);
    EXPECT_TRUE(four.run(wrapped));
    EXPECT_EQ(four.rightItems(), 4);
    inner.failOnCall = inner.calls + 3;
    EXPECT_FALSE(failing.run(wrapped));
    EXPECT_EQ(inner.calls, 7);
    EXPECT_EQ(failing.rightItems(), 3);  // the third was computed, but failed
    EXPECT_TRUE(none.run(wrapped));
    EXPECT_EQ(inner.calls, 7);
    wrapped->destroy();
    EXPECT_EQ(inner.destroyed, 1);
}

// A built network, which checks what it is given: y = max(a, b), all of shape [batch, 3] with dims 1.
nolk::Runner* strictRunner(int batch) {
    RawRunnerBuilder* builder = new RawRunnerBuilder(nullptr);
    const nolk::TensorShape shape{batch, 3, 1, 1, 1};
    nolk::TensorX *const a = builder->input(shape), *output = builder->max(a, builder->input(shape));
    nolk::Runner* const runner = builder->build(&output, 1);
    builder->destroy();
    return runner;
}

// Tensors for a strict runner.
struct StrictCall {
    explicit StrictCall(int items) {
        for (nolk::Tensor* t : {&inputs[0], &inputs[1], &output}) t->shape = {items, 3, 1, 1, 1};
        inputs[0].data = a;
        inputs[1].data = b;
        output.data = y;
    }
    bool run(nolk::Runner* runner) { return runner->run(inputs, 2, &output, 1); }
    bool isRight() const { return std::equal(y, y + 12, expected); }

    float a[12] = {-1, 2, -3, 4, -5, 6, -7, 8, -9, 10, -11, 12}, b[24] = {}, y[12] = {};
    const float expected[12] = {0, 2, 0, 4, 0, 6, 0, 8, 0, 10, 0, 12};
    nolk::Tensor inputs[2], output;
};

TEST(BaseBatchRunner, TheFirstInputAloneSaysHowManyItemsThereAre) {
    for (const int batch : {1, 2}) {
        nolk::Runner* const wrapped = nolk_wrap_batch_runner(strictRunner(batch), batch);
        StrictCall noData(2), noOutputs(2), otherDims(2), right(4);
        noData.inputs[1].data = nullptr;
        otherDims.inputs[1].shape.dims = 3;
        right.inputs[1].shape.n = 1;
        right.output.shape.n = 0;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(noData.run(wrapped));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "tensors[1] is null\n");  // in the inner runner's words
        EXPECT_FALSE(wrapped->run(nullptr, 2, &noData.output, 1));
        EXPECT_FALSE(wrapped->run(noData.inputs, 0, &noData.output, 1));
        testing::internal::CaptureStderr();
        EXPECT_FALSE(wrapped->run(noOutputs.inputs, 2, nullptr, 1));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "tensors is null\n");
        EXPECT_FALSE(otherDims.run(wrapped));
        EXPECT_TRUE(right.run(wrapped));
        EXPECT_TRUE(right.isRight());
        wrapped->destroy();
    }
}

TEST(BatchRunner, EveryCallerGetsItsOwnResults) {
    for (const int batch : {1, 16}) {  // 1: callers take turns
        CountingRunner inner;
        inner.batch = batch;
        nolk::Runner* const shared = nolk_wrap_batch_runner(&inner, batch);
        std::atomic<int> wrong{0};
        inThreads(64, [shared, &wrong](int t) {
            for (int i = 0; i < 200; ++i) {
                const int items = 1 + (t * 7 + i) % 5;
                Call call(items, static_cast<std::uint32_t>(t * 1000 + i));
                if (!call.run(shared) || call.rightItems() != items) ++wrong;
            }
        });
        EXPECT_EQ(wrong, 0);
        shared->destroy();
        EXPECT_EQ(inner.destroyed, 1);
    }
}

TEST(BatchRunner, ALargeCallTakesSeveralRunsAndAFailingRunFailsItsItemsAlone) {
    for (const bool throwing : {false, true}) {
        CountingRunner inner;
        inner.batch = 4;
        inner.throwing = throwing;
        inner.failOnCall = 1;
        BatchRunner* shared = new BatchRunner(&inner, 4);
        Call first(4, 1), ten(10, 5), forty(40, 6), none(0, 7);  // 40 are more than the queue holds
        testing::internal::CaptureStderr();
        EXPECT_FALSE(first.run(shared));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "batch runner error\n");
        EXPECT_TRUE(ten.run(shared));
        EXPECT_EQ(ten.rightItems(), 10);
        EXPECT_GE(inner.calls, 4);
        EXPECT_TRUE(forty.run(shared));
        EXPECT_EQ(forty.rightItems(), 40);
        EXPECT_FALSE(none.run(shared));
        shared->destroy();
    }
}

TEST(BatchRunner, TheFirstPassThatSucceedsFixesTheSizes) {
    nolk::Runner* const shared = nolk_wrap_batch_runner(strictRunner(4), 4);
    for (int i = 0; i < 2; ++i) {
        StrictCall wrong(2);  // refused by the inner runner, so it fixes nothing
        wrong.inputs[0].shape.dims = 3;
        EXPECT_FALSE(wrong.run(shared));
    }
    // Whether a pass has succeeded or not, wrong callers do not spoil the passes of right ones.
    for (int round = 0; round < 2; ++round)
        inThreads(8, [shared](int t) {
            StrictCall call(4);
            if (t % 2) call.inputs[1].shape.c = 6;
            EXPECT_EQ(call.run(shared), t % 2 == 0);
            EXPECT_EQ(call.isRight(), t % 2 == 0);
        });
    // By now the number of elements decides.
    StrictCall otherShape(4), otherDims(4), oneInput(4);
    EXPECT_FALSE(shared->run(oneInput.inputs, 1, &oneInput.output, 1));
    otherShape.inputs[0].shape = {4, 1, 3, 1, 3};
    otherShape.output.shape = {4, 1, 1, 3, 3};
    otherDims.inputs[1].shape.dims = 3;
    EXPECT_TRUE(otherShape.run(shared));
    EXPECT_TRUE(otherShape.isRight());
    EXPECT_TRUE(otherDims.run(shared));
    shared->destroy();
}

TEST(BatchRunner, ConstructionAllocatesNothingForTheBatch) {
    CountingRunner inner;
    const std::size_t before = mallinfo2().hblkhd + mallinfo2().uordblks;
    BatchRunner* const shared = new BatchRunner(&inner, INT_MAX);
    EXPECT_LT(mallinfo2().hblkhd + mallinfo2().uordblks, before + (std::size_t{1} << 20));
    Call call(1, 1);
    EXPECT_FALSE(call.run(shared));  // the batch's tensors are beyond 32 bits
    shared->destroy();
}

TEST(BatchRunner, DestroyServesThoseWhoWait) {
    CountingRunner inner;
    inner.batch = 2;
    inner.duration = std::chrono::milliseconds(5);
    BatchRunner* shared = new BatchRunner(&inner, 2);
    std::atomic<int> inside{0};
    inThreads(9, [&](int t) {
        if (t < 8) {
            Call call(9, static_cast<std::uint32_t>(t));
            ++inside;
            EXPECT_TRUE(call.run(shared));
            EXPECT_EQ(call.rightItems(), 9);
            return;
        }
        while (inside < 8) std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // into run
        shared->destroy();
        EXPECT_EQ(inner.destroyed, 1);
    });
}

}  // namespace
