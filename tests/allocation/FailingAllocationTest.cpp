// Lets each allocation of loading and running fail once. Whatever fails, memory is released, and nothing but
// std::bad_alloc, null or false tells the host.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#ifdef HAS_FAST_BACK_END
#include "fast/FastRunnerBuilder.h"
#endif
#include "inspect/ModelWriterImpl.h"
#include "support/Allocations.h"
#include "support/messages.h"
#include "support/values.h"

namespace {

using Bytes = std::vector<unsigned char>;
using X = nolk::TensorX*;
using Network = std::function<X(nolk::RunnerBuilder&, X input, float* values)>;

const struct {
    const char* name;
    nolk::TensorShape output;
    Network record;
} kNetworks[] = {
    {"fusion and scratch memory",
     {1, 3, 4, 4, 3},
     [](nolk::RunnerBuilder& b, X x, float* v) {
         const nolk::Vector four{4, v};
         X y = b.batchNormalize(b.pad(x, {1, 1, 1, 1}), four, four, four, four, 2.0f);
         y = b.convolve(y, {}, {1, 1}, {1, 1}, {1, 4, 4, 3, 3, false, v, v});
         y = b.maxPool(b.pad(b.batchNormalize(y, four, four, four, four, 2.0f), {1, 0, 1, 0}), {2, 2}, {}, {1, 1});
         y = b.deConvolve(y, {}, {2, 2}, {1, 1}, {1, 3, 4, 2, 2, false, v, v});
         return b.resize(y, {1, 3, 4, 4, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel);
     }},
    {"copies and constants",
     {1, 4, 4, 4, 3},
     [](nolk::RunnerBuilder& b, X x, float* v) {
         nolk::Tensor constant{{1, 4, 4, 4, 3}, v};
         X parts[] = {b.slice(x, {1, 0, 2, 1}), b.slice(b.prelu(b.constTensor(&constant), v, 4), {1, 2, 4, 1})};
         X y = b.add(b.concat(parts, 2, nolk::Axis::c), b.instanceNormalization(b.abs(x), {4, v}, {4, v}, 0.1f));
         y = b.transpose(b.instanceNormalization(y, 0.1f), {{0, 1, 3, 2}});
         return b.matMul(y, b.softmax(b.l2normalize(x), nolk::Axis::w));
     }},
    {"recurrent and connected",
     {1, 5, 1, 1, 1},
     [](nolk::RunnerBuilder& b, X x, float* v) {
         X y = b.reshape(x, {1, 1, 16, 4, 3}, nolk::TensorLayout::nhwc);
         y = b.lstm(y, {nolk::Direction::both, 2, 4, 3, v, v, v, true});
         y = b.reshape(b.reduce(y, {1, 1, 1, 6, 3}, nolk::BasicOp::mean), {1, 6, 1, 1, 1}, nolk::TensorLayout::nchw);
         return b.fullConnect(y, {1, 5, 6, 1, 1, true, v, v});
     }},
};

Bytes fileOf(const Network& record) {
    std::vector<float> values = Values(3).reals(400);
    ModelWriterImpl writer({4, false, {}});
    X y = record(writer, writer.input({1, 4, 4, 4, 3}), values.data());
    writer.build(&y, 1);
    return writer.bytes();
}

#ifdef HAS_FAST_BACK_END
nolk::RunnerBuilder* newFastBuilder() { return new FastRunnerBuilder(nullptr); }
nolk::RunnerBuilder* newThreadedFastBuilder() { return new FastRunnerBuilder("num_threads=3, arenas=2"); }
#endif

const struct {
    const char* name;
    nolk::RunnerBuilder* (*newBuilder)();  // null: the exported function that loads a file
} kBackEnds[] = {
    {"exported", nullptr},
#ifdef HAS_FAST_BACK_END
    {"fast", newFastBuilder},
    {"fast, three threads", newThreadedFastBuilder},
#endif
};

nolk::Runner* load(Bytes& file, nolk::RunnerBuilder* (*newBuilder)()) {
    if (!newBuilder) return nolk_new_runner(nullptr, file.data(), static_cast<int>(file.size()), 1);
    const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
    const nolk::Owned<nolk::RunnerBuilder> builder(newBuilder());
    return reader->readFromMemory(builder.get(), 1, file.data(), static_cast<int>(file.size()));
}

// Loads a file, runs it through a batch runner of size 1 and releases it.
void useOnce(Bytes& file, const nolk::TensorShape& output, nolk::RunnerBuilder* (*newBuilder)()) {
    std::vector<float> in(64, 0.5f), out(64, 0.0f);
    nolk::Runner* runner = load(file, newBuilder);
    if (!runner) return;
    if (nolk::Runner* const wrapped = nolk_wrap_batch_runner(runner, 1)) runner = wrapped;
    nolk::Tensor inputs{{1, 4, 4, 4, 3}, in.data()}, outputs{output, out.data()};
    try {
        runner->run(&inputs, 1, &outputs, 1);
    } catch (const std::bad_alloc&) {
        // A runner can be used again after it.
        EXPECT_TRUE(runner->run(&inputs, 1, &outputs, 1));
    }
    runner->destroy();
}

// After each failure the file is used once more: that must succeed, and leave the same as before. The fast back end
// remembers which packed weights exist, which takes a little memory until the next load of equal ones.
void letEachFail(const Bytes& original, const nolk::TensorShape& output, nolk::RunnerBuilder* (*newBuilder)()) {
    Bytes file = original;
    useOnce(file, output, newBuilder);  // what is allocated once for the process
    int failures = 0;
    for (bool isReached = true; isReached;) {
        SCOPED_TRACE(testing::Message() << "allocation " << failures + 1);
        testing::internal::CaptureStderr();
        bool isThrown = false;
        {
            const Allocations allocations(failures + 1);
            try {
                useOnce(file, output, newBuilder);
            } catch (const std::bad_alloc&) {
                isThrown = true;
            }
            isReached = allocations.hasFailed();
            // nolk.h: the bytes are not restored if reading a record throws.
            if (!isThrown) {
                EXPECT_EQ(file, original);
            }
            std::copy(original.begin(), original.end(), file.begin());
            if (isReached) useOnce(file, output, newBuilder);
            for (char text[8]; nolk_pop_error_message(text, sizeof text), *text != 0;) {
            }
            EXPECT_EQ(allocations.blocks(), 0);
        }
        testing::internal::GetCapturedStderr();
        failures += isReached;
    }
    EXPECT_GT(failures, 50);
}

TEST(FailingAllocation, NothingIsLostInLoadingAndRunning) {
    for (const auto& network : kNetworks)
        for (const auto& backEnd : kBackEnds) {
            SCOPED_TRACE(testing::Message() << network.name << ", " << backEnd.name);
            letEachFail(fileOf(network.record), network.output, backEnd.newBuilder);
        }
}

TEST(FailingAllocation, AMessageWithoutMemoryIsDropped) {
    popMessages();
    {
        const Allocations allocations(1);
        nolk_push_error_message("lost");
        EXPECT_TRUE(allocations.hasFailed());
    }
    EXPECT_EQ(popMessages(), std::vector<std::string>{});
}

TEST(FailingAllocation, NothingIsLostInCheckingAndLoadingWithLimits) {
    for (const auto& network : kNetworks) {
        SCOPED_TRACE(network.name);
        const Bytes file = fileOf(network.record);
        const auto use = [&file] {
            nolk::checkModel(file.data(), file.size());
            nolk::inspectModel(file.data(), file.size());
            nolk::loadModel(file.data(), file.size(), 1, nullptr, {1 << 20, 1 << 20});
        };
        use();
        bool isReached = true;
        for (int number = 1; isReached; number += 7) {
            const Allocations allocations(number);
            try {
                use();
            } catch (const std::bad_alloc&) {
            } catch (const nolk::ModelError&) {
            }
            isReached = allocations.hasFailed();
            EXPECT_EQ(allocations.now(), 0) << "allocation " << number;
        }
    }
}

}  // namespace
