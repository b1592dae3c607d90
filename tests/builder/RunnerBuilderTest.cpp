#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "builder/RawRunnerBuilder.h"
#include "builder/utils.h"
#include "support/everyOperation.h"
#include "support/expectReference.h"

namespace {

TEST(Settings, AreFoundWithBlanksRepetitionsAndTrailingText) {
    const std::string tooLong = std::string(505, 'x') + ",num_threads=4";
    const struct {
        const char* cfg;
        int threads, threshold;
    } cases[] = {
        {nullptr, 1, 2000000},
        {"", 1, 2000000},
        {"num_threads = 4 , gemm_thresh=100", 4, 100},
        {"num_threads=4abc", 4, 2000000},
        {"num_threads=2,,num_threads=-3", -3, 2000000},
        {"\tgemm_thresh\n=\r7 ,unknown=x,flag", 1, 7},
        {"num_threads=4294967298", 2, 2000000},
        {tooLong.c_str(), 1, 2000000},  // cut inside the key
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cfg ? c.cfg : "null");
        const auto settings = cfgToMap(c.cfg);
        EXPECT_EQ(intSetting(settings, "num_threads", 1), c.threads);
        EXPECT_EQ(intSetting(settings, "gemm_thresh", 2000000), c.threshold);
    }
}

TEST(Settings, WhatIsNoNumberThrows) {
    for (const char* const cfg : {"num_threads=many", "gemm_thresh=", "num_threads"})
        EXPECT_THROW(RawRunnerBuilder{cfg}, std::invalid_argument) << cfg;
    EXPECT_THROW(RawRunnerBuilder("num_threads=99999999999999999999"), std::out_of_range);
}

TEST(RunnerBuilder, NullsGiveNullResultsAndShapesBeyond32BitsAreRefused) {
    Net net;
    X const x = net.input({1, 2, 2, 2, 3}, std::vector<float>(8));
    X some[] = {x, nullptr};
    for (X const y : {net->relu(nullptr), net->add(x, nullptr), net->add(nullptr, x), net->matMul(nullptr, x),
                      net->matMul(x, nullptr), net->concat(some, 2, nolk::Axis::c), net->constTensor(nullptr),
                      net->convolve(nullptr, {}, {}, {}, {}), net->instanceNormalization(nullptr, 0.1f)})
        EXPECT_EQ(y, nullptr);
    EXPECT_EQ(net->shapeOf(nullptr).dims, 0);
    EXPECT_THROW(net.build({x, nullptr}), std::invalid_argument);
    EXPECT_THROW(net->build(nullptr, 1), std::invalid_argument);
    nolk::Tensor noData{{1, 2, 1, 1, 1}, nullptr};
    EXPECT_EQ(net->constTensor(&noData), nullptr);
    EXPECT_THROW(net.build({net->relu(net.input({1, 65536, 65536, 1, 3}, {}))}), std::invalid_argument);
}

TEST(RunnerBuilder, AnEmptyNetworkBuildsAndRuns) {
    Net net;
    nolk::Runner* runner = net->build(nullptr, 0);
    nolk::Tensor none;
    EXPECT_TRUE(runner->run(&none, 0, &none, 0));
    runner->destroy();
    EXPECT_THROW(net->build(nullptr, 0), std::logic_error);  // once
}

const Shape kFilled{1, 2, 3, 4, 3};

// What an operation reads and writes beyond its tensors is for the sanitizers to find.
TEST(RunnerBuilder, NegativeExtentsAreHarmlessToEveryOperation) {
    for (const Shape& shape : {Shape{1, 2, -1, 4, 3},
                               {1, 2, -3, -4, 3},
                               {-1, -2, 3, 4, 3},
                               {1, -2, 3, 4, 3},
                               {1, -2, -3, 4, 3},
                               {1, 2, 3, -1, 3}}) {
        std::vector<OperationCase> operations = everyOperation(shape);
        operations.push_back({"reduce to negative extents", true, true, [](Recording& r) {
                                  return r->reduce(r.x[1], {1, -2, -3, -4, 3}, nolk::BasicOp::sum);
                              }});
        operations.push_back(
            {"deConvolve cropped", true, false, [](Recording& r) {
                 return r->deConvolve(r.x[0], {-9, 0, -9, 0}, {1, 1}, {1, 1}, r.weights(1, 1, 2, 1, 1, false));
             }});
        for (const OperationCase& operation : operations) {
            SCOPED_TRACE(testing::Message() << operation.name << " of [" << shape.n << " " << shape.c << " " << shape.h
                                            << " " << shape.w << "]");
            Net net;
            Recording r(*net.operator->(), {net.input(shape, std::vector<float>(64, 1.0f)),
                                            net.input(kFilled, std::vector<float>(24, -2.0f))});
            X const y = operation.record(r), rest = net->abs(r.x[1]);
            try {
                const auto out = net.run({y, rest});
                ASSERT_EQ(out.size(), 2u);
                EXPECT_EQ(out[1], std::vector<float>(24, 2.0f));
            } catch (const std::invalid_argument& e) {
                EXPECT_TRUE(operation.mayBeRefused) << e.what();
            }
        }
    }
}

TEST(RunnerBuilder, TensorsOfAnotherBuilderAreRefused) {
    Net other;
    X const stranger = other.input({1, 2, 1, 1, 1}, {1, 2});
    const Record operations[] = {
        [=](Recording& r) { return r->relu(stranger); },
        [=](Recording& r) { return r->add(stranger, nullptr); },
        [=](Recording& r) { return r->add(r.x[0], stranger); },
        [=](Recording& r) { return r->matMul(r.x[0], stranger); },
        [=](Recording& r) {
            return r->concat(Xs{r.x[0], stranger}.data(), 2, nolk::Axis::c);
        },
        [=](Recording& r) { return r->instanceNormalization(stranger, 0.1f); },
    };
    for (const Record& operation : operations) {
        const auto record = [&](Recording& r) {
            EXPECT_EQ(operation(r), nullptr);
            return r.x[0];
        };
        expectRefused({{1, 2, 1, 1, 1}}, "another builder", record);  // also where nothing depends on the result
    }
    expectRefused({}, "output 0 is a tensor of another builder", [=](Recording&) { return stranger; });

    // The other builder may be gone.
    Net later;
    auto gone = std::make_unique<Net>();
    X const dangling = gone->input({1, 2, 1, 1, 1}, {1, 2});
    gone.reset();
    EXPECT_EQ(later->relu(dangling), nullptr);
    EXPECT_EQ(later->shapeOf(dangling).n, 0);
}

}  // namespace
