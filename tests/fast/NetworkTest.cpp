// Whole networks on the fast back end: against the built-in one, and against themselves with other numbers of threads,
// other batches and other instruction sets.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "builder/RawRunnerBuilder.h"
#include "fast/FastRunnerBuilder.h"
#include "fast/kernels/FastKernels.h"
#include "support/RandomNetwork.h"
#include "support/effort.h"
#include "support/hashOf.h"
#include "support/values.h"

namespace {

using Results = std::vector<std::vector<float>>;

std::size_t countOf(const Shape& s) {
    return static_cast<std::size_t>(s.n) * static_cast<std::size_t>(s.c) * static_cast<std::size_t>(s.h) *
           static_cast<std::size_t>(s.w);
}

// A random network and inputs for it. Sample i of a batch is the same in every batch.
class Network {
public:
    Network(std::uint32_t seed, int batch, Builder* builder) : batch_(batch) {
        RandomNetwork random(seed, batch);
        Xs outputs = random.record(*builder);
        for (X const output : outputs) outputs_.push_back(builder->shapeOf(output));
        for (const Shape& shape : random.inputs) {
            inputs_.push_back(shape);
            values_.push_back(Values(seed + static_cast<std::uint32_t>(inputs_.size())).reals(countOf(shape)));
        }
        runner_ = builder->build(outputs.data(), static_cast<int>(outputs.size()));
        builder->destroy();
    }
    ~Network() { runner_->destroy(); }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    Results run() {
        std::vector<nolk::Tensor> in, out;
        Results results;
        for (std::size_t i = 0; i < inputs_.size(); ++i) in.push_back({inputs_[i], values_[i].data()});
        for (const Shape& shape : outputs_) results.emplace_back(countOf(shape), -12345.0f);
        for (std::size_t i = 0; i < outputs_.size(); ++i) out.push_back({outputs_[i], results[i].data()});
        EXPECT_TRUE(runner_->run(in.data(), static_cast<int>(in.size()), out.data(), static_cast<int>(out.size())));
        return results;
    }

    // Results for samples that are the last ones of a larger batch.
    void takeSamples(const Network& larger, int first) {
        for (std::size_t i = 0; i < values_.size(); ++i) {
            const auto sample = static_cast<std::ptrdiff_t>(values_[i].size()) / batch_;
            std::copy_n(larger.values_[i].begin() + first * sample, values_[i].size(), values_[i].begin());
        }
    }

private:
    int batch_;
    std::vector<Shape> inputs_, outputs_;
    Results values_;
    nolk::Runner* runner_;
};

Builder* fastBuilder(int threads) {
    return new FastRunnerBuilder(("num_threads=" + std::to_string(threads) + ", spin_us=0").c_str());
}

TEST(FastNetwork, EqualsTheBuiltInBackEnd) {
    const int seeds = std::max(3 * effort() / 2, 10);
    for (int seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const int batch = seed % 3 == 0 ? 2 : 1;
        Network plain(static_cast<std::uint32_t>(seed), batch, new RawRunnerBuilder(nullptr));
        Network fast(static_cast<std::uint32_t>(seed), batch, fastBuilder(1 + seed % 3));
        const Results expected = plain.run(), actual = fast.run();
        for (std::size_t i = 0; i < expected.size(); ++i) {
            float largest = 0.0f;
            for (const float v : expected[i]) largest = std::max(largest, std::fabs(v));
            // Rounding adds up over dozens of operations, in proportion to the largest values.
            expectClose(actual[i], expected[i], 5e-5f * (1.0f + largest));
        }
        const Results again = fast.run();
        for (std::size_t i = 0; i < expected.size(); ++i) expectSameBits(again[i], actual[i]);
    }
}

// Networks with operations that leave a part of their output unwritten, or that run through built-in layers with
// weights of their own. Results must not depend on what an earlier run left in memory, nor on the number of threads.
TEST(FastNetwork, NothingOfAnEarlierRunIsSeen) {
    std::vector<float> weights = Values(3).reals(4 * 3 * 5 + 4 * 3 * 3);
    const auto record = [&weights](Builder* builder) {
        X const x = builder->input({1, 4, 6, 5, 3});
        nolk::LstmWeights lstm;
        lstm.inputSize = 5;
        lstm.hiddenSize = 3;
        lstm.inputWeights = weights.data();
        lstm.recurrentWeights = weights.data() + 60;
        X const rows = builder->lstm(x, lstm);                                      // writes the rows of one channel
        X const reduced = builder->reduce(x, {1, 2, 6, 5, 3}, nolk::BasicOp::sum);  // writes one channel
        nolk::Weights kernel{1, 4, 4, 3, 3, true, weights.data(), nullptr};
        kernel.kernelH = kernel.kernelW = 2;
        X const sparse = builder->deConvolve(x, {}, {9, 9}, {1, 1}, kernel);  // too many phases for the fast layer
        X const product = builder->matMul(x, builder->transpose(x, {{0, 1, 3, 2}}));
        X const clipped = builder->clip(
            builder->convolve(product, {}, {1, 1}, {1, 1}, {1, 4, 4, 1, 1, true, weights.data(), nullptr}), 6.0f, 0.0f);
        Xs outputs{rows, reduced, sparse, clipped};
        nolk::Runner* const runner = builder->build(outputs.data(), 4);
        builder->destroy();
        return runner;
    };
    const std::vector<Shape> shapes{{1, 4, 6, 3, 3}, {1, 2, 6, 5, 3}, {1, 4, 47, 38, 3}, {1, 4, 6, 6, 3}};
    const auto run = [&](nolk::Runner* runner, std::vector<float> values) {
        nolk::Tensor in{{1, 4, 6, 5, 3}, values.data()};
        Results results;
        for (const Shape& shape : shapes) results.emplace_back(countOf(shape), -12345.0f);
        std::vector<nolk::Tensor> out;
        for (std::size_t i = 0; i < shapes.size(); ++i) out.push_back({shapes[i], results[i].data()});
        EXPECT_TRUE(runner->run(&in, 1, out.data(), 4));
        return results;
    };
    const std::vector<float> values = Values(1).reals(120), others = Values(2).reals(120);
    nolk::Runner* const one = record(fastBuilder(1));
    nolk::Runner* const three = record(fastBuilder(3));
    nolk::Runner* const plain = record(new RawRunnerBuilder(nullptr));
    const Results first = run(one, values);
    run(one, others);
    const Results again = run(one, values);
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i)
        callers.emplace_back([&] {
            for (int round = 0; round < 20; ++round) {
                run(three, others);
                const Results results = run(three, values);
                for (std::size_t k = 0; k < results.size(); ++k) expectSameBits(results[k], first[k]);
            }
        });
    for (std::thread& caller : callers) caller.join();
    const Results expected = run(plain, values);
    for (std::size_t i = 0; i < first.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "output " << i);
        expectSameBits(again[i], first[i]);
        expectClose(first[i], expected[i], 1e-4f);
    }
    one->destroy();
    three->destroy();
    plain->destroy();
}

TEST(FastNetwork, HasTheSameBitsOnEveryInstructionSetForAnyThreadsAndBatch) {
    const int seeds = std::max(effort() / 4, 4), batch = 4;
    for (int seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const auto number = static_cast<std::uint32_t>(seed);
        Network whole(number, batch, fastBuilder(1));
        const Results expected = whole.run();
        for (const FastKernels* kernels : supportedFastKernels()) {
            forceFastKernels(kernels);
            for (int threads = 1; threads <= 4; ++threads) {
                SCOPED_TRACE(testing::Message() << kernels->name << ", threads " << threads);
                const Results actual = Network(number, batch, fastBuilder(threads)).run();
                for (std::size_t i = 0; i < expected.size(); ++i) expectSameBits(actual[i], expected[i]);
                // As many samples alone as there are threads.
                Network part(number, threads, fastBuilder(1));
                part.takeSamples(whole, batch - threads);
                const Results samples = part.run();
                for (std::size_t i = 0; i < expected.size(); ++i)
                    expectSameBits(samples[i], {expected[i].end() - static_cast<std::ptrdiff_t>(samples[i].size()),
                                                expected[i].end()});
            }
        }
        forceFastKernels(nullptr);
    }
}

// The other tests show that threads, batches and instruction sets of one processor make no difference.
TEST(FastNetwork, ResultsAreTheSameOnEveryProcessor) {
    std::ifstream file(FAST_ANSWERS_FILE);
    std::ostringstream expected, actual;
    expected << file.rdbuf();
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        const Results results = Network(seed, 2, fastBuilder(2)).run();
        actual << hashOf(results[0]) << " network " << seed << "\n";
    }
    EXPECT_TRUE(actual.str() == expected.str()) << "computed are\n" << actual.str();
}

TEST(FastNetwork, ManyThreadsRunOneRunner) {
    for (const std::uint32_t seed : {3u, 11u}) {
        Network network(seed, 1, fastBuilder(2));
        const Results expected = network.run();
        std::vector<std::thread> callers;
        for (int i = 0; i < 8; ++i)
            callers.emplace_back([&] {
                for (int round = 0; round < 5; ++round) {
                    const Results actual = network.run();
                    for (std::size_t k = 0; k < expected.size(); ++k) expectSameBits(actual[k], expected[k]);
                }
            });
        for (std::thread& caller : callers) caller.join();
    }
}

}  // namespace
