// What runners of the fast back end allocate: as much as their builder says, weights once for all runners, and nothing
// in a run.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <utility>

#include "fast/FastRunnerBuilder.h"
#include "support/Allocations.h"
#include "support/RandomNetwork.h"

namespace {

using Owner = std::shared_ptr<nolk::Runner>;

Owner built(Builder* builder, Xs outputs) {
    nolk::Runner* const runner = builder->build(outputs.data(), static_cast<int>(outputs.size()));
    return Owner(runner, [](nolk::Runner* r) { r->destroy(); });
}

std::shared_ptr<FastRunnerBuilder> newBuilder(const std::string& settings) {
    return {new FastRunnerBuilder(settings.c_str()), [](Builder* b) { b->destroy(); }};
}

// What make returns, and the bytes that it has allocated and kept.
template <typename Make>
std::pair<Owner, std::int64_t> grown(const Make& make) {
    const Allocations allocations;
    Owner runner = make();
    return {runner, allocations.now()};
}

TEST(FastMemory, ARunAllocatesNothing) {
    for (std::uint32_t seed = 1; seed <= 12; ++seed)
        for (const int threads : {1, 3}) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", threads " << threads);
            const auto builder = newBuilder("num_threads=" + std::to_string(threads));
            RandomNetwork network(seed, 1);
            const Xs outputs = network.record(*builder);
            std::deque<std::vector<float>> values;
            std::vector<nolk::Tensor> in, out;
            const auto add = [&](std::vector<nolk::Tensor>& list, const Shape& s) {
                list.push_back({s, values.emplace_back(s.n * s.c * s.h * s.w, 0.5f).data()});
            };
            for (const Shape& shape : network.inputs) add(in, shape);
            for (X const output : outputs) add(out, builder->shapeOf(output));
            const Owner runner = built(builder.get(), outputs);
            const Allocations allocations;
            runner->run(in.data(), static_cast<int>(in.size()), out.data(), static_cast<int>(out.size()));
            EXPECT_EQ(allocations.most(), 0);
        }
}

struct Case {
    Shape in;
    X (*record)(Builder& b, X x, Arrays& a);
};

const nolk::Padding kRing{1, 1, 1, 1};
const nolk::DimsHW kOne{1, 1}, kTwo{2, 2};

// The same for each sample of the batch.
X constant(Builder& b, const Shape& shape, Arrays& a) {
    const float* const sample = a.reals(shape.c * shape.h * shape.w);
    std::vector<float> all;
    for (int n = 0; n < shape.n; ++n) all.insert(all.end(), sample, sample + shape.c * shape.h * shape.w);
    nolk::Tensor tensor{shape, all.data()};
    return b.constTensor(&tensor);
}

// A builder tells what its runner would take before it takes it: here in the refusal, then in the heap.
TEST(FastMemory, WhatIsLimitedIsWhatIsTaken) {
    const Case cases[] = {
        {{1, 2000, 40, 1, 3},
         [](Builder& b, X x, Arrays& a) { return b.convolve(x, {}, kOne, kOne, a.weights(1, 1, 2000, 1, 1, true)); }},
        {{1, 128, 9, 9, 3},
         [](Builder& b, X x, Arrays& a) { return b.convolve(x, kRing, kOne, kOne, a.weights(64, 2, 2, 3, 3, true)); }},
        {{1, 400, 9, 9, 3},
         [](Builder& b, X x, Arrays& a) { return b.convolve(x, kRing, kOne, kOne, a.weights(400, 1, 1, 3, 3, true)); }},
        {{1, 64, 9, 9, 3},
         [](Builder& b, X x, Arrays& a) { return b.deConvolve(x, {}, kTwo, kOne, a.weights(1, 40, 64, 5, 5, true)); }},
        {{1, 999, 1, 1, 1},
         [](Builder& b, X x, Arrays& a) { return b.fullConnect(x, a.weights(1, 77, 999, 1, 1, true)); }},
        {{1, 1, 20, 300, 3},
         [](Builder& b, X x, Arrays& a) {
             return b.matMul(x, constant(b, {1, 1, 300, 500, 3}, a));
         }},
        {{1, 400, 2, 2, 3},  // with so many phases that the built-in layer does it
         [](Builder& b, X x, Arrays& a) {
             return b.deConvolve(x, {}, {9, 9}, kOne, a.weights(1, 400, 400, 1, 1, true));
         }},
        {{1, 20000, 1, 1, 1},
         [](Builder& b, X x, Arrays& a) {
             const nolk::Vector v = a.vector(20000);
             return b.prelu(b.instanceNormalization(b.batchNormalize(x, v, v, v, v, 2.0f), v, v, 2.0f), v.data, 20000);
         }},
        {{2, 20000, 1, 1, 1},  // of a batch, by the built-in layer
         [](Builder& b, X x, Arrays& a) { return b.prelu(x, a.reals(20000), 20000); }},
        {{2, 1, 200, 30, 3},  // a product with one sample for both, and a sum
         [](Builder& b, X x, Arrays& a) {
             X const y = b.matMul(x, constant(b, {2, 1, 30, 500, 3}, a));
             nolk::Tensor term{{2, 1, 200, 500, 3}, a.reals(2 * 200 * 500)};
             return b.add(y, b.constTensor(&term));
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        const auto build = [&c](std::int64_t limit) {
            Arrays arrays(5);
            const auto builder = newBuilder("arenas=3");
            builder->limitMemory(limit);
            return built(builder.get(), {c.record(*builder, builder->input(c.in), arrays)});
        };
        std::int64_t told = 0;
        try {
            build(1);
            ADD_FAILURE() << "not refused";
        } catch (const std::length_error& e) {
            told = std::stoll(std::string(e.what()).substr(std::string("build: NolkFast needs ").size()));
        }
        const auto [runner, taken] = grown([&] { return build(told); });
        EXPECT_LT(taken, told + told / 20 + 20000);
        EXPECT_LT(told, taken + taken / 20 + 20000);
    }
}

// Three convolutions, or three products with constants.
TEST(FastMemory, RunnersOfTheSameWeightsShareThem) {
    for (const bool isProduct : {false, true}) {
        SCOPED_TRACE(isProduct);
        const auto build = [isProduct](int batch) {
            Arrays a(5);
            const auto b = newBuilder("");
            X x = b->input(isProduct ? Shape{batch, 1, 4, 200, 3} : Shape{batch, 64, 6, 6, 3});
            for (int i = 0; i < 3; ++i)
                x = isProduct ? b->slice(b->matMul(x, constant(*b, {batch, 1, 200, 208, 3}, a)), {3, 0, 200, 1})
                              : b->relu(b->convolve(x, kRing, kOne, kOne, a.weights(1, 64, 64, 3, 3, true)));
            return built(b.get(), {x});
        };
        const std::int64_t weightBytes = 4 * 3 * (isProduct ? 200 * 208 : 64 * 64 * 9);
        const auto [first, firstBytes] = grown([&] { return build(1); });
        const auto [second, secondBytes] = grown([&] { return build(2); });
        EXPECT_GE(firstBytes, weightBytes);
        EXPECT_LT(firstBytes, weightBytes * 3 / 2);
        EXPECT_LT(secondBytes, weightBytes / 2);
    }
}

// The constant's 2^28 floats, which nobody writes, would be 2^31 in blocks. Offsets in a tensor have 32 bits.
TEST(FastMemory, ConstantsThatAreTooLargeInBlocksAreRefused) {
    const auto builder = newBuilder("");
    Arrays arrays(5);
    nolk::Tensor large{{1, 2, 1, 1 << 27, 3}, builder->keep(zeroedFloats(std::size_t{1} << 28))};
    X y = builder->convolve(builder->constTensor(&large), {}, {1, 1}, {1, 1}, arrays.weights(2, 1, 1, 1, 1, true));
    EXPECT_THROW(builder->build(&y, 1), std::bad_alloc);
}

}  // namespace
