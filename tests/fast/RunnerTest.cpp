// What runners of the fast back end promise besides their results: settings, memory, threads.
#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "fast/FastRunnerBuilder.h"
#include "fast/FastTeam.h"
#include "fast/layers/FastPackedWeights.h"
#include "support/RandomNetwork.h"

// Counts what the whole program allocates, where the C library lets a program replace its functions and no sanitizer
// has done so.
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define COUNTS_ALLOCATIONS
std::atomic<std::int64_t> allocations{0};

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t bytes) {
    ++allocations;
    return __libc_malloc(bytes);
}
void* calloc(std::size_t count, std::size_t bytes) {
    ++allocations;
    return __libc_calloc(count, bytes);
}
void* realloc(void* old, std::size_t bytes) {
    ++allocations;
    return __libc_realloc(old, bytes);
}
}
#endif

namespace {

TEST(FastSettings, UnknownKeysAndMeaninglessValuesAreNamed) {
    const std::string longText = std::string(600, ' ') + ",bogus=1";
    const struct {
        const char* cfg;
        const char* text;  // null: accepted
    } cases[] = {
        {nullptr, nullptr},
        {"", nullptr},
        {" num_threads = 2 , spin_us=0,arenas=3", nullptr},
        {"num_thread=2", "unknown setting 'num_thread'"},
        {"gemm_thresh=1", "unknown setting 'gemm_thresh'"},
        {"num_threads=0", "setting num_threads must be a number from 1 to 1024, is '0'"},
        {"num_threads=-1", "is '-1'"},
        {"num_threads=many", "is 'many'"},
        {"num_threads=2x", "is '2x'"},
        {"num_threads", "is ''"},
        {"num_threads=+2", "is '+2'"},
        {"num_threads=2,num_threads=2", "setting num_threads is given twice"},
        {"=", "unknown setting ''"},
        {longText.c_str(), "unknown setting 'bogus'"},
        {"num_threads=99999999999999999999", "is '99999999999999999999'"},
        {"spin_us=21", "setting spin_us must be a number from 0 to 20, is '21'"},
        {"num_threads=2, arenas=0", "setting arenas must be a number from 1 to 1024, is '0'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cfg ? c.cfg : "null");
        std::string refusal;
        try {
            FastSettings::parse(c.cfg);
        } catch (const std::invalid_argument& e) {
            refusal = e.what();
        }
        EXPECT_EQ(refusal.empty(), c.text == nullptr) << refusal;
        EXPECT_NE(refusal.find(c.text ? c.text : ""), std::string::npos) << refusal;
    }
    EXPECT_EQ(FastSettings::parse("arenas=3, spin_us=0").arenas, 3);
    EXPECT_EQ(FastSettings::parse("arenas=3, spin_us=0").numThreads, 1);
}

// Rounds of few and of many tasks, workers that sleep between them, callers that find the workers taken, teams that end
// while their workers sleep, spin or never worked.
TEST(FastTeam, DoesEveryTaskOnce) {
    for (const int threads : {1, 2, 5})
        for (const int spin : {0, 20}) {
            SCOPED_TRACE(testing::Message() << threads << " threads, spin " << spin);
            FastTeam team(threads, spin);
            const auto work = [&team] {
                for (int round = 0; round < 200; ++round) {
                    const int tasks = round % 7 == 0 ? 100 : round % 4;
                    std::vector<std::atomic<int>> done(static_cast<std::size_t>(tasks));
                    FastTeam::Session session(team);
                    for (int again = 0; again < 3; ++again)
                        session.forEach(tasks, round % 3 == 0 ? 100000 : 3000,
                                        [&](int task) { ++done[static_cast<std::size_t>(task)]; });
                    for (const std::atomic<int>& count : done) ASSERT_EQ(count, 3);
                    if (round % 50 == 0) std::this_thread::sleep_for(std::chrono::microseconds(100));
                }
            };
            std::thread other(work);
            work();
            other.join();
        }
    for (int i = 0; i < 50; ++i) FastTeam(3, i % 2 * 20);
}

TEST(FastPackedWeights, EqualArraysAreShared) {
    const auto packed = [](float last) {
        auto floats = std::make_unique<FastPackedFloats>(33);
        floats->data()[32] = last;
        return shareFloats(std::move(floats));
    };
    FastPacked one = packed(1.0f);
    EXPECT_EQ(packed(1.0f), one);
    EXPECT_NE(packed(2.0f), one);  // the last element is not a part of a pair
    const std::weak_ptr<const FastPackedFloats> gone = one;
    one.reset();
    EXPECT_TRUE(gone.expired());
    EXPECT_EQ(packed(1.0f)->data()[32], 1.0f);
}

#ifdef COUNTS_ALLOCATIONS

nolk::Runner* convolutions(int batch) {
    Arrays arrays(5);
    Builder* const builder = new FastRunnerBuilder(nullptr);
    X x = builder->input({batch, 64, 6, 6, 3});
    for (int i = 0; i < 3; ++i)
        x = builder->relu(builder->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, arrays.weights(1, 64, 64, 3, 3, true)));
    nolk::Runner* const runner = builder->build(&x, 1);
    builder->destroy();
    return runner;
}

// Three products with constants [200, 208] that are the same for each sample.
nolk::Runner* matrixProducts(int batch) {
    Builder* const builder = new FastRunnerBuilder(nullptr);
    X x = builder->input({batch, 1, 4, 200, 3});
    for (std::uint32_t i = 0; i < 3; ++i) {
        const std::vector<float> sample = Values(i).reals(200 * 208);
        std::vector<float> samples;
        for (int n = 0; n < batch; ++n) samples.insert(samples.end(), sample.begin(), sample.end());
        nolk::Tensor constant{{batch, 1, 200, 208, 3}, samples.data()};
        x = builder->slice(builder->matMul(x, builder->constTensor(&constant)), {3, 0, 200, 1});
    }
    nolk::Runner* const runner = builder->build(&x, 1);
    builder->destroy();
    return runner;
}

TEST(FastRunner, ARunAllocatesNothing) {
    for (std::uint32_t seed = 1; seed <= 12; ++seed)
        for (const int threads : {1, 3}) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", threads " << threads);
            Builder* const builder = new FastRunnerBuilder(("num_threads=" + std::to_string(threads)).c_str());
            RandomNetwork network(seed, 1);
            Xs outputs = network.record(*builder);
            std::vector<std::vector<float>> values;
            std::vector<nolk::Tensor> in, out;
            const auto add = [&](std::vector<nolk::Tensor>& list, const Shape& s) {
                values.emplace_back(static_cast<std::size_t>(s.n * s.c * s.h * s.w), 0.5f);
                list.push_back({s, values.back().data()});
            };
            for (const Shape& shape : network.inputs) add(in, shape);
            for (X const output : outputs) add(out, builder->shapeOf(output));
            nolk::Runner* const runner = builder->build(outputs.data(), static_cast<int>(outputs.size()));
            builder->destroy();
            const std::int64_t before = allocations;
            runner->run(in.data(), static_cast<int>(in.size()), out.data(), static_cast<int>(out.size()));
            EXPECT_EQ(allocations - before, 0);
            runner->destroy();
        }
}

// What make returns, and the bytes that it has allocated and kept.
template <typename F>
std::pair<nolk::Runner*, std::int64_t> grown(const F& make) {
    const struct mallinfo2 before = mallinfo2();
    nolk::Runner* const runner = make();
    const struct mallinfo2 after = mallinfo2();
    return {runner, static_cast<std::int64_t>(after.uordblks + after.hblkhd) -
                        static_cast<std::int64_t>(before.uordblks + before.hblkhd)};
}

// A builder tells what its runner would take before it takes it: here in the refusal, then in the heap.
TEST(FastRunner, TheMemoryThatIsLimitedIsTheMemoryThatIsTaken) {
    using Record = std::function<X(Builder*, X, Arrays&)>;
    const struct {
        nolk::TensorShape in;
        Record record;
    } cases[] = {
        {{1, 2000, 40, 1, 3},
         [](Builder* b, X x, Arrays& a) {
             return b->convolve(x, {}, {1, 1}, {1, 1}, a.weights(1, 1, 2000, 1, 1, true));
         }},
        {{1, 128, 9, 9, 3},
         [](Builder* b, X x, Arrays& a) {
             return b->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, a.weights(64, 2, 2, 3, 3, true));
         }},
        {{1, 400, 9, 9, 3},
         [](Builder* b, X x, Arrays& a) {
             return b->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, a.weights(400, 1, 1, 3, 3, true));
         }},
        {{1, 64, 9, 9, 3},
         [](Builder* b, X x, Arrays& a) {
             return b->deConvolve(x, {}, {2, 2}, {1, 1}, a.weights(1, 40, 64, 5, 5, true));
         }},
        {{1, 999, 1, 1, 1},
         [](Builder* b, X x, Arrays& a) { return b->fullConnect(x, a.weights(1, 77, 999, 1, 1, true)); }},
        {{1, 1, 20, 300, 3},
         [](Builder* b, X x, Arrays& a) {
             nolk::Tensor constant{{1, 1, 300, 500, 3}, a.weights(1, 300, 500, 1, 1, false).weight};
             return b->matMul(x, b->constTensor(&constant));
         }},
        {{2, 1, 200, 30, 3},  // a product with one sample for both, and a sum
         [](Builder* b, X x, Arrays& a) {
             std::vector<float> both(2 * 30 * 500, 0.25f);
             nolk::Tensor factor{{2, 1, 30, 500, 3}, both.data()}, term{{2, 1, 200, 500, 3}, a.reals(2 * 200 * 500)};
             return b->add(b->matMul(x, b->constTensor(&factor)), b->constTensor(&term));
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const auto build = [&c](std::int64_t limit) {
            Arrays arrays(5);
            FastRunnerBuilder* const builder = new FastRunnerBuilder("arenas=3");
            const std::shared_ptr<Builder> owner(builder, [](Builder* b) { b->destroy(); });
            builder->limitMemory(limit);
            X y = c.record(builder, builder->input(c.in), arrays);
            return builder->build(&y, 1);
        };
        std::int64_t told = 0;
        try {
            build(1);
            ADD_FAILURE() << "not refused";
        } catch (const std::length_error& e) {
            told = std::stoll(std::string(e.what()).substr(std::string("build: NolkFast needs ").size()));
        }
        const auto [runner, taken] = grown([&] { return build(told); });
        runner->destroy();
        EXPECT_LT(taken, told + told / 20 + 20000);
        EXPECT_LT(told, taken + taken / 20 + 20000);
    }
}

TEST(FastRunner, RunnersOfTheSameWeightsShareThem) {
    const struct {
        std::int64_t weightBytes;
        nolk::Runner* (*build)(int batch);
    } cases[] = {
        {3 * 64 * 64 * 9 * 4, convolutions},
        {3 * 200 * 208 * 4, matrixProducts},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const auto [first, firstBytes] = grown([&c] { return c.build(1); });
        const auto [second, secondBytes] = grown([&c] { return c.build(2); });
        EXPECT_GE(firstBytes, c.weightBytes);
        EXPECT_LT(firstBytes, c.weightBytes * 3 / 2);
        EXPECT_LT(secondBytes, c.weightBytes / 2);
        first->destroy();
        second->destroy();
    }
}

#endif

}  // namespace
