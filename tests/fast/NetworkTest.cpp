// Whole networks on the fast back end: against the built-in one, and against themselves with other numbers of threads,
// other batches and other instruction sets.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "builder/RawRunnerBuilder.h"
#include "fast/FastRunnerBuilder.h"
#include "fast/kernels/FastKernels.h"
#include "support/Net.h"
#include "support/RandomNetwork.h"
#include "support/ReferenceBuilder.h"
#include "support/effort.h"
#include "support/hashOf.h"
#include "support/values.h"

namespace {

using Results = std::vector<std::vector<float>>;

// A random network for samples `first` to `first + batch - 1`, which are the same in every batch.
class Network : public Net {
public:
    Network(std::uint32_t seed, int batch, Builder* builder, int first = 0) : Net(builder) {
        RandomNetwork random(seed, batch);
        const Xs outputs = random.record(*builder);
        for (const Shape& shape : random.inputs) {
            const std::ptrdiff_t begin = std::ptrdiff_t{first} * shape.c * shape.h * shape.w;
            const std::vector<float> values =
                Values(++seed).reals(ReferenceBuilder::count(shape) + static_cast<std::size_t>(begin));
            feed(shape, {values.begin() + begin, values.end()});
        }
        build(outputs);
    }
};

Builder* fastBuilder(int threads) {
    return new FastRunnerBuilder(("num_threads=" + std::to_string(threads) + ", spin_us=0").c_str());
}

void expectSameResults(const Results& actual, const Results& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "output " << i);
        expectSameBits(actual[i], expected[i]);
    }
}

// Runs f in some threads at the same time.
template <typename Function>
void inThreads(Function f) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(f);
    for (std::thread& thread : threads) thread.join();
}

TEST(FastNetwork, EqualsTheBuiltInBackEndAlsoWithManyCallers) {
    const int seeds = std::max(3 * effort() / 2, 10);
    for (int seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const int batch = seed % 3 == 0 ? 2 : 1;
        Network plain(static_cast<std::uint32_t>(seed), batch, new RawRunnerBuilder(nullptr));
        Network fast(static_cast<std::uint32_t>(seed), batch, fastBuilder(1 + seed % 3));
        const Results expected = plain.runAgain(), actual = fast.runAgain();
        for (std::size_t i = 0; i < expected.size(); ++i) {
            float largest = 0.0f;
            for (const float v : expected[i]) largest = std::max(largest, std::fabs(v));
            // Rounding adds up over dozens of operations, in proportion to the largest values.
            expectClose(actual[i], expected[i], 5e-5f * (1.0f + largest));
        }
        expectSameResults(fast.runAgain(), actual);
        if (seed % 8 == 3) inThreads([&] { expectSameResults(fast.runAgain(), actual); });
    }
}

// Networks with operations that leave a part of their output unwritten, or that run through built-in layers with
// weights of their own. Results must not depend on what an earlier run left in memory, nor on the number of threads.
TEST(FastNetwork, NothingOfAnEarlierRunIsSeen) {
    const auto record = [](Net& net) {
        Arrays a(3);
        X const x = net.input({1, 4, 6, 5, 3}, Values(1).reals(120));
        // It writes the rows of one channel, as the reduction writes one channel.
        X const rows = net->lstm(x, {nolk::Direction::forward, 1, 5, 3, a.reals(60), a.reals(36), nullptr, true});
        X const reduced = net->reduce(x, {1, 2, 6, 5, 3}, nolk::BasicOp::sum);
        // Too many phases for the fast layer.
        X const sparse = net->deConvolve(x, {}, {9, 9}, {1, 1}, a.weights(1, 4, 4, 2, 2, false));
        X const product = net->matMul(x, net->transpose(x, {{0, 1, 3, 2}}));
        X const y = net->convolve(product, {}, {1, 1}, {1, 1}, a.weights(1, 4, 4, 1, 1, false));
        net.build({rows, reduced, sparse, net->clip(y, 6.0f, 0.0f)});
    };
    const Results others{Values(2).reals(120)};
    Net one(fastBuilder(1)), three(fastBuilder(3)), plain(new RawRunnerBuilder(nullptr));
    for (Net* const net : {&one, &three, &plain}) record(*net);
    const Results first = one.runAgain(), expected = plain.runAgain();
    one.runAgain(others);
    expectSameResults(one.runAgain(), first);
    inThreads([&] {
        for (int round = 0; round < 20; ++round) {
            three.runAgain(others);
            expectSameResults(three.runAgain(), first);
        }
    });
    for (std::size_t i = 0; i < first.size(); ++i) expectClose(first[i], expected[i], 1e-4f);
}

TEST(FastNetwork, HasTheSameBitsOnEveryInstructionSetForAnyThreadsAndBatch) {
    const int seeds = std::max(effort() / 4, 4), batch = 4;
    for (int seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const auto number = static_cast<std::uint32_t>(seed);
        const Results expected = Network(number, batch, fastBuilder(1)).runAgain();
        forEachInstructionSet([&] {
            for (int threads = 1; threads <= 4; ++threads) {
                SCOPED_TRACE(testing::Message() << "threads " << threads);
                expectSameResults(Network(number, batch, fastBuilder(threads)).runAgain(), expected);
                // As many samples alone as there are threads.
                const Results samples = Network(number, threads, fastBuilder(1), batch - threads).runAgain();
                for (std::size_t i = 0; i < expected.size(); ++i)
                    expectSameBits(samples[i], {expected[i].end() - static_cast<std::ptrdiff_t>(samples[i].size()),
                                                expected[i].end()});
            }
        });
    }
}

// The other tests show that threads, batches and instruction sets of one processor make no difference.
TEST(FastNetwork, ResultsAreTheSameOnEveryProcessor) {
    std::ifstream file(FAST_ANSWERS_FILE);
    std::ostringstream expected, actual;
    expected << file.rdbuf();
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        const Results results = Network(seed, 2, fastBuilder(2)).runAgain();
        actual << hashOf(results[0]) << " network " << seed << "\n";
    }
    EXPECT_TRUE(actual.str() == expected.str()) << "computed are\n" << actual.str();
}

TEST(FastKernels, CanBeForcedAndAreNamed) {
    for (const FastKernels* kernels : supportedFastKernels()) {
        forceFastKernels(kernels);
        EXPECT_EQ(&fastKernels(), kernels);
        EXPECT_STRNE(kernels->name, "");
    }
    forceFastKernels(nullptr);
    EXPECT_EQ(&fastKernels(), supportedFastKernels().back());
}

}  // namespace
