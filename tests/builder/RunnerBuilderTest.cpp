#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "builder/utils.h"
#include "support/Net.h"
#include "support/refusal.h"
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

TEST(RunnerBuilder, ConstantsWithoutDataAndShapesBeyond32BitsAreRefused) {
    Net net;
    nolk::Tensor noData{{1, 2, 1, 1, 1}, nullptr};
    EXPECT_EQ(net->constTensor(&noData), nullptr);
    EXPECT_THROW(net.build({net->relu(net.input({1, 65536, 65536, 1, 3}, {}))}), std::invalid_argument);
}

const nolk::TensorShape kFilled{1, 2, 3, 4, 3};

TEST(RunnerBuilder, WindowsAndSlicesWithoutPositionsLeaveTheRestOfTheNetworkAlone) {
    auto weight = Values(1).reals(2 * 25);
    const nolk::Weights wide{1, 1, 2, 5, 5, false, weight.data(), nullptr};
    Net net;
    nolk::TensorX* const x = net.input(kFilled, std::vector<float>(24, -2.0f));
    nolk::TensorX* const none[] = {net->maxPool(x, {5, 6}, {}, {1, 1}), net->convolve(x, {}, {1, 1}, {1, 1}, wide),
                                   net->slice(x, {2, 3, 1, 1})};
    for (nolk::TensorX* const y : none) EXPECT_LT(net->shapeOf(y).h, 0);
    const auto out = net.run({none[0], net->relu(none[1]), none[2], net->abs(x)});
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[3], std::vector<float>(24, 2.0f));
}

// Each operation on a tensor with extents below 0 is refused, or computes nothing and lets the rest of the network run.
// What an operation reads and writes beyond its tensors is for the sanitizers to find.
TEST(RunnerBuilder, NegativeExtentsAreHarmlessToEveryOperation) {
    std::vector<float> values(64, 1.0f);
    float* const v = values.data();
    const nolk::Vector two{2, v};
    const nolk::Weights weights{1, 1, 2, 1, 1, false, v, nullptr};
    const nolk::LstmWeights lstm{nolk::Direction::forward, 1, 4, 1, v, v, nullptr, true};
    using X = nolk::TensorX*;
    struct Operation {
        bool mayBeRefused;  // where it would read or write beyond its tensors
        std::function<X(Net&, X, X)> record;
    };
    std::vector<Operation> operations{
        {false, [](Net& n, X x, X) { return n->relu(x); }},
        {false, [=](Net& n, X x, X) { return n->prelu(x, v, 2); }},
        {false, [](Net& n, X x, X f) { return n->add(x, f); }},
        {false, [](Net& n, X x, X f) { return n->sub(f, x); }},
        {false, [](Net& n, X x, X f) { return n->max(f, x); }},
        {false,
         [](Net& n, X x, X) {
             return n->maxPool(x, {2, 2}, {}, {1, 1});
         }},
        {false,
         [](Net& n, X x, X) {
             return n->avgPool(x, {1, 1}, {3, 3, 3, 3}, {1, 1});
         }},
        {true,
         [](Net& n, X x, X) {
             return n->pad(x, {3, 3, 3, 3});
         }},
        {false, [=](Net& n, X x, X) { return n->batchNormalize(x, two, two, two, two, 1.0f); }},
        {false, [](Net& n, X x, X) { return n->instanceNormalization(x, 1.0f); }},
        {false, [](Net& n, X x, X) { return n->l2normalize(x); }},
        {false, [](Net& n, X x, X) { return n->softmax(x, nolk::Axis::c); }},
        {false, [](Net& n, X x, X) { return n->softmax(x, nolk::Axis::h); }},
        {false, [](Net& n, X x, X) { return n->softmax(x, nolk::Axis::w); }},
        {false,
         [](Net& n, X x, X) {
             return n->transpose(x, {{0, 2, 3, 1}});
         }},
        {false,
         [](Net& n, X x, X) {
             return n->slice(x, {3, 0, 2, 1});
         }},
        {false,
         [](Net& n, X x, X) {
             return n->reshape(x, {1, 4, 1, 1, 3}, nolk::TensorLayout::nhwc);
         }},
        {true,
         [](Net& n, X x, X) {
             return n->reduce(x, {1, 1, 1, 1, 3}, nolk::BasicOp::mean);
         }},
        {true,
         [](Net& n, X, X f) {
             return n->reduce(f, {1, -2, -3, -4, 3}, nolk::BasicOp::sum);
         }},
        {true,
         [](Net& n, X x, X) {
             return n->resize(x, {1, 2, 2, 2, 3}, nolk::ResizeMode::nearest, {});
         }},
        {true,
         [](Net& n, X x, X) {
             return n->resize(x, {1, 2, 2, 2, 3}, nolk::ResizeMode::linear, {});
         }},
        {false, [](Net& n, X x, X f) { return n->matMul(x, f); }},
        {true, [](Net& n, X x, X f) { return n->matMul(f, x); }},
        {true,
         [=](Net& n, X x, X) {
             return n->convolve(x, {3, 3, 3, 3}, {1, 1}, {1, 1}, weights);
         }},
        {false,
         [=](Net& n, X x, X) {
             return n->deConvolve(x, {-9, 0, -9, 0}, {1, 1}, {1, 1}, weights);
         }},
        {true, [=](Net& n, X x, X) { return n->fullConnect(x, weights); }},
        {true, [=](Net& n, X x, X) { return n->lstm(x, lstm); }},
    };
    for (const nolk::Axis axis : {nolk::Axis::n, nolk::Axis::c, nolk::Axis::h, nolk::Axis::w})
        for (int place = 0; place < 2; ++place)
            operations.push_back({true, [=](Net& n, X x, X f) {
                                      X three[] = {place == 0 ? x : f, place == 1 ? x : f, f};
                                      return n->concat(three, 3, axis);
                                  }});
    for (const nolk::TensorShape& shape : {nolk::TensorShape{1, 2, -1, 4, 3},
                                           {1, 2, -3, -4, 3},
                                           {-1, -2, 3, 4, 3},
                                           {1, -2, 3, 4, 3},
                                           {1, -2, -3, 4, 3},
                                           {1, 2, 3, -1, 3}})
        for (const Operation& operation : operations) {
            Net net;
            X const x = net.input(shape, values);
            X const f = net.input(kFilled, std::vector<float>(24, -2.0f));
            X const y = operation.record(net, x, f);
            X const rest = net->abs(f);
            SCOPED_TRACE(testing::Message() << "operation " << &operation - operations.data() << " of [" << shape.n
                                            << " " << shape.c << " " << shape.h << " " << shape.w << "]");
            try {
                const auto out = net.run({y, rest});
                ASSERT_EQ(out.size(), 2u);
                EXPECT_EQ(out[1], std::vector<float>(24, 2.0f));
            } catch (const std::invalid_argument& e) {
                EXPECT_TRUE(operation.mayBeRefused) << e.what();
            }
        }
}

TEST(RunnerBuilder, TensorsOfAnotherBuilderAreRefused) {
    Net other;
    nolk::TensorX* const stranger = other.input({1, 2, 1, 1, 1}, {1, 2});
    const std::function<nolk::TensorX*(Net&, nolk::TensorX*)> operations[] = {
        [=](Net& net, nolk::TensorX*) { return net->relu(stranger); },
        [=](Net& net, nolk::TensorX*) { return net->add(stranger, nullptr); },
        [=](Net& net, nolk::TensorX* own) { return net->add(own, stranger); },
        [=](Net& net, nolk::TensorX* own) { return net->matMul(own, stranger); },
        [=](Net& net, nolk::TensorX* own) {
            nolk::TensorX* pair[] = {own, stranger};
            return net->concat(pair, 2, nolk::Axis::c);
        },
        [=](Net& net, nolk::TensorX*) { return net->instanceNormalization(stranger, 0.1f); },
    };
    for (const auto& operation : operations) {
        Net net;
        nolk::TensorX* const own = net.input({1, 2, 1, 1, 1}, {1, 2});
        EXPECT_EQ(operation(net, own), nullptr);
        expectRefused(net, own, "another builder");  // also where nothing depends on the result
    }
    Net net;
    expectRefused(net, stranger, "output 0 is a tensor of another builder");

    // The other builder may be gone.
    Net later;
    auto gone = std::make_unique<Net>();
    nolk::TensorX* const dangling = gone->input({1, 2, 1, 1, 1}, {1, 2});
    gone.reset();
    EXPECT_EQ(later->relu(dangling), nullptr);
    EXPECT_EQ(later->shapeOf(dangling).n, 0);
}

}  // namespace
