#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "builder/utils.h"
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

// Operations on a tensor with extents below 0, with kFilled beside it, that are harmless as they are, and such that may
// be refused because they would read or write beyond their tensors.
struct Operations {
    std::vector<Record> accepted, refusable;

    Operations() {
        using nolk::Axis, nolk::BasicOp, nolk::ResizeMode;
        const auto accept = [this](const Record& record) { accepted.push_back(record); };
        const auto mayRefuse = [this](const Record& record) { refusable.push_back(record); };
        const auto weights = [](Arrays& a) { return a.weights(1, 1, 2, 1, 1, false); };
        accept([](Builder& b, Xs& x, Arrays&) { return b.relu(x[0]); });
        accept([](Builder& b, Xs& x, Arrays& a) { return b.prelu(x[0], a.reals(2), 2); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.add(x[0], x[1]); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.sub(x[1], x[0]); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.max(x[1], x[0]); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.maxPool(x[0], {2, 2}, {}, {1, 1}); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.avgPool(x[0], {1, 1}, {3, 3, 3, 3}, {1, 1}); });
        mayRefuse([](Builder& b, Xs& x, Arrays&) { return b.pad(x[0], {3, 3, 3, 3}); });
        accept([](Builder& b, Xs& x, Arrays& a) {
            return b.batchNormalize(x[0], a.vector(2), a.vector(2), a.vector(2), a.positive(2), 1.0f);
        });
        accept([](Builder& b, Xs& x, Arrays&) { return b.instanceNormalization(x[0], 1.0f); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.l2normalize(x[0]); });
        for (const Axis axis : {Axis::c, Axis::h, Axis::w})
            accept([=](Builder& b, Xs& x, Arrays&) { return b.softmax(x[0], axis); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.transpose(x[0], {{0, 2, 3, 1}}); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.slice(x[0], {3, 0, 2, 1}); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.reshape(x[0], {1, 4, 1, 1, 3}, nolk::TensorLayout::nhwc); });
        mayRefuse([](Builder& b, Xs& x, Arrays&) { return b.reduce(x[0], {1, 1, 1, 1, 3}, BasicOp::mean); });
        mayRefuse([](Builder& b, Xs& x, Arrays&) { return b.reduce(x[1], {1, -2, -3, -4, 3}, BasicOp::sum); });
        for (const ResizeMode mode : {ResizeMode::nearest, ResizeMode::linear})
            mayRefuse([=](Builder& b, Xs& x, Arrays&) { return b.resize(x[0], {1, 2, 2, 2, 3}, mode, {}); });
        accept([](Builder& b, Xs& x, Arrays&) { return b.matMul(x[0], x[1]); });
        mayRefuse([](Builder& b, Xs& x, Arrays&) { return b.matMul(x[1], x[0]); });
        mayRefuse([=](Builder& b, Xs& x, Arrays& a) {
            return b.convolve(x[0], {3, 3, 3, 3}, {1, 1}, {1, 1}, weights(a));
        });
        accept([=](Builder& b, Xs& x, Arrays& a) {
            return b.deConvolve(x[0], {-9, 0, -9, 0}, {1, 1}, {1, 1}, weights(a));
        });
        mayRefuse([=](Builder& b, Xs& x, Arrays& a) { return b.fullConnect(x[0], weights(a)); });
        mayRefuse([](Builder& b, Xs& x, Arrays& a) {
            return b.lstm(x[0], {nolk::Direction::forward, 1, 4, 1, a.reals(16), a.reals(4), nullptr, true});
        });
        for (const Axis axis : {Axis::n, Axis::c, Axis::h, Axis::w})
            for (const std::size_t place : {0, 1})
                mayRefuse([=](Builder& b, Xs& x, Arrays&) {
                    X three[] = {x[1], x[1], x[1]};
                    three[place] = x[0];
                    return b.concat(three, 3, axis);
                });
    }
};

// What an operation reads and writes beyond its tensors is for the sanitizers to find.
TEST(RunnerBuilder, NegativeExtentsAreHarmlessToEveryOperation) {
    const Operations operations;
    for (const Shape& shape : {Shape{1, 2, -1, 4, 3},
                               {1, 2, -3, -4, 3},
                               {-1, -2, 3, 4, 3},
                               {1, -2, 3, 4, 3},
                               {1, -2, -3, 4, 3},
                               {1, 2, 3, -1, 3}}) {
        SCOPED_TRACE(testing::Message() << shape.n << " " << shape.c << " " << shape.h << " " << shape.w);
        for (const bool refusable : {false, true})
            for (const Record& record : refusable ? operations.refusable : operations.accepted) {
                Net net;
                Arrays arrays(1);
                Xs x{net.input(shape, std::vector<float>(64, 1.0f)), net.input(kFilled, std::vector<float>(24, -2.0f))};
                X const y = record(*net.operator->(), x, arrays), rest = net->abs(x[1]);
                try {
                    const auto out = net.run({y, rest});
                    ASSERT_EQ(out.size(), 2u);
                    EXPECT_EQ(out[1], std::vector<float>(24, 2.0f));
                } catch (const std::invalid_argument& e) {
                    EXPECT_TRUE(refusable) << e.what();
                }
            }
    }
}

TEST(RunnerBuilder, TensorsOfAnotherBuilderAreRefused) {
    Net other;
    X const stranger = other.input({1, 2, 1, 1, 1}, {1, 2});
    const Record operations[] = {
        [=](Builder& b, Xs&, Arrays&) { return b.relu(stranger); },
        [=](Builder& b, Xs&, Arrays&) { return b.add(stranger, nullptr); },
        [=](Builder& b, Xs& own, Arrays&) { return b.add(own[0], stranger); },
        [=](Builder& b, Xs& own, Arrays&) { return b.matMul(own[0], stranger); },
        [=](Builder& b, Xs& own, Arrays&) {
            X pair[] = {own[0], stranger};
            return b.concat(pair, 2, nolk::Axis::c);
        },
        [=](Builder& b, Xs&, Arrays&) { return b.instanceNormalization(stranger, 0.1f); },
    };
    for (const Record& operation : operations) {
        const auto record = [&](Builder& b, Xs& own, Arrays& a) {
            EXPECT_EQ(operation(b, own, a), nullptr);
            return own[0];
        };
        expectRefused({{1, 2, 1, 1, 1}}, "another builder", record);  // also where nothing depends on the result
    }
    const auto output = [=](Builder&, Xs&, Arrays&) { return stranger; };
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
