#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

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

template <typename Exception>
void expectStol(const char* cfg) {
    try {
        RawRunnerBuilder builder(cfg);
        FAIL() << "accepted " << cfg;
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), "stol");
    }
}

TEST(Settings, WhatIsNoNumberThrows) {
    expectStol<std::invalid_argument>("num_threads=many");
    expectStol<std::invalid_argument>("gemm_thresh=");
    expectStol<std::invalid_argument>("num_threads");  // a key without a value
    expectStol<std::out_of_range>("num_threads=99999999999999999999");
}

TEST(RunnerBuilder, NullInputsGiveNullResults) {
    Net net;
    nolk::TensorX* x = net.input({1, 2, 2, 2, 3}, std::vector<float>(8));
    nolk::TensorX* some[] = {x, nullptr};
    EXPECT_EQ(net->relu(nullptr), nullptr);
    EXPECT_EQ(net->add(x, nullptr), nullptr);
    EXPECT_EQ(net->add(nullptr, x), nullptr);
    EXPECT_EQ(net->concat(some, 2, nolk::Axis::c), nullptr);
    EXPECT_EQ(net->matMul(nullptr, x), nullptr);
    EXPECT_EQ(net->matMul(x, nullptr), nullptr);
    EXPECT_EQ(net->convolve(nullptr, {}, {}, {}, {}), nullptr);
    EXPECT_EQ(net->instanceNormalization(nullptr, 0.1f), nullptr);
    EXPECT_EQ(net->constTensor(nullptr), nullptr);
    EXPECT_EQ(net->shapeOf(nullptr).dims, 0);
    EXPECT_THROW(net.build({x, nullptr}), std::invalid_argument);
    EXPECT_THROW(net->build(nullptr, 1), std::invalid_argument);
}

TEST(RunnerBuilder, AnEmptyNetworkBuildsAndRuns) {
    Net net;
    nolk::Runner* runner = net->build(nullptr, 0);
    nolk::Tensor none;
    EXPECT_TRUE(runner->run(&none, 0, &none, 0));
    runner->destroy();
    EXPECT_THROW(net->build(nullptr, 0), std::logic_error);  // once
}

TEST(RunnerBuilder, InputsConstantsAndRepeatedOutputsKeepTheirValues) {
    Net net;
    nolk::TensorX* x = net.input({1, 1, 1, 4, 3}, {-1, 2, -3, 4});
    nolk::TensorX* c = net.constant({1, 1, 1, 4, 3}, {5, -6, 7, -8});
    nolk::TensorX* y = net->relu(x);
    nolk::TensorX* z = net->abs(net->add(c, y));
    net.build({x, c, y, z, y, x});
    for (int i = 0; i < 2; ++i) {  // nothing carries over from run to run
        const auto out = net.runAgain();
        const std::vector<std::vector<float>> expected = {{-1, 2, -3, 4}, {5, -6, 7, -8}, {0, 2, 0, 4},
                                                          {5, 4, 7, 4},   {0, 2, 0, 4},   {-1, 2, -3, 4}};
        EXPECT_EQ(out, expected);
    }
}

TEST(RunnerBuilder, ConstantsWithoutDataAndShapesBeyond32BitsAreRefused) {
    Net net;
    nolk::Tensor noData{{1, 2, 1, 1, 1}, nullptr};
    EXPECT_EQ(net->constTensor(&noData), nullptr);
    EXPECT_THROW(net.build({net->relu(net.input({1, 65536, 65536, 1, 3}, {}))}), std::invalid_argument);
}

const Shape kFilled{1, 2, 3, 4, 3};

TEST(RunnerBuilder, WindowsAndSlicesWithoutPositionsLeaveTheRestOfTheNetworkAlone) {
    Arrays arrays(1);
    Net net;
    nolk::TensorX* const x = net.input(kFilled, std::vector<float>(24, -2.0f));
    nolk::TensorX* const none[] = {net->maxPool(x, {5, 6}, {}, {1, 1}),
                                   net->convolve(x, {}, {1, 1}, {1, 1}, arrays.weights(1, 1, 2, 5, 5, false)),
                                   net->slice(x, {2, 3, 1, 1})};
    for (nolk::TensorX* const y : none) EXPECT_LT(net->shapeOf(y).h, 0);
    const auto out = net.run({none[0], net->relu(none[1]), none[2], net->abs(x)});
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[3], std::vector<float>(24, 2.0f));
}

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
            X pair[] = {r.x[0], stranger};
            return r->concat(pair, 2, nolk::Axis::c);
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
    const auto output = [=](Recording&) { return stranger; };
    expectRefused({}, "output 0 is a tensor of another builder", output);

    // The other builder may be gone.
    Net later;
    auto gone = std::make_unique<Net>();
    X const dangling = gone->input({1, 2, 1, 1, 1}, {1, 2});
    gone.reset();
    EXPECT_EQ(later->relu(dangling), nullptr);
    EXPECT_EQ(later->shapeOf(dangling).n, 0);
}

}  // namespace
