#include <gtest/gtest.h>

#include <stdexcept>

#include "builder/utils.h"
#include "support/Net.h"
#include "support/values.h"

namespace {

struct SettingsCase {
    const char* cfg;
    int threads, threshold;
};

TEST(Settings, AreFoundWithBlanksRepetitionsAndTrailingText) {
    const std::string tooLong = std::string(505, 'x') + ",num_threads=4";
    const SettingsCase cases[] = {
        {nullptr, 1, 2000000},
        {"", 1, 2000000},
        {"num_threads = 4 , gemm_thresh=100", 4, 100},
        {"num_threads=4abc", 4, 2000000},
        {"num_threads=2,,num_threads=-3", -3, 2000000},
        {"\tgemm_thresh\n=\r7 ,unknown=x,flag", 1, 7},
        {"num_threads=4294967298", 2, 2000000},
        {tooLong.c_str(), 1, 2000000},  // cut inside the key
    };
    for (const SettingsCase& c : cases) {
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

TEST(RunnerBuilder, ConstantsWithoutDataOrSenseAreRefused) {
    Net net;
    nolk::Tensor noData{{1, 2, 1, 1, 1}, nullptr};
    EXPECT_EQ(net->constTensor(&noData), nullptr);
    float one = 1.0f;
    nolk::Tensor negative{{1, -2, 1, 1, 1}, &one};
    nolk::TensorX* t = net->constTensor(&negative);
    EXPECT_THROW(net.build({t}), std::invalid_argument);
}

TEST(RunnerBuilder, UnrepresentableShapesAreRefused) {
    for (const nolk::TensorShape& shape :
         {nolk::TensorShape{1, 65536, 65536, 1, 3}, {1, -1, 1, 1, 1}, {-1, -1, 2, 2, 3}}) {
        Net net;
        EXPECT_THROW(net.build({net->relu(net.input(shape, {}))}), std::invalid_argument);
    }
}

}  // namespace
