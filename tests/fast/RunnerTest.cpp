#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

#include "fast/FastSettings.h"
#include "fast/FastTeam.h"
#include "fast/layers/FastConvolutionLayer.h"
#include "fast/layers/FastPackedWeights.h"

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

// With kernels that only count, so that the plane needs no memory.
TEST(FastConvolutionLayer, DividesAPlaneOfNearly2To31Pixels) {
    constexpr std::int64_t kPixels = 2147483632;
    static std::int64_t products = 0, steps = 0;
    FastKernels counting{};
    counting.product = [](const FastProduct& call) { products += call.pixels; };
    counting.step = [](const FastStepCall& call) { steps += call.count; };
    FastView view;
    view.shape = {1, 1, 1, kPixels, 3};
    view.strides = FastStrides(view.shape, FastLayout::plain, {});
    float weight = 1.0f;
    FastNode node;
    node.steps.resize(2);
    node.steps.front().step.kind = node.steps.back().step.kind = FastStepKind::tanh;
    const FastConvolution op{{}, {1, 1}, {1, 1}, {1, 1, 1, 1, 1, false, &weight}};
    FastArena arena;
    arena.floats.growTo(1);
    FastTeam team(1, 0);
    FastTeam::Session session(team);
    FastConvolutionLayer(node, op, view, view, {}, 0).run({arena, session, counting});
    EXPECT_EQ(products, kPixels);
    EXPECT_EQ(steps, 2 * kPixels);
}

}  // namespace
