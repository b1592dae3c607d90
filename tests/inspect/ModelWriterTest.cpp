#include "inspect/ModelWriterImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/Codebook.h"
#include "inspect/MessageCollector.h"
#include "inspect/RecordWriter.h"
#include "model/ModelReaderImpl.h"
#include "support/CallLog.h"
#include "support/effort.h"
#include "support/messages.h"
#include "support/modelBytes.h"
#include "support/values.h"

namespace {

// A network with every record of the format, for a batch of n.
void recordEverything(nolk::RunnerBuilder& b, int n) {
    std::vector<float> v = Values(1).reals(2000);
    float* const f = v.data();
    nolk::TensorX* const x = b.input({n, 4, 6, 5, 3});
    nolk::TensorX* const matrix = b.input({n, 3, 1, 1, 1});
    std::vector<float> samples;
    for (int i = 0; i < n; ++i) samples.insert(samples.end(), f, f + 4 * 6 * 5);
    nolk::Tensor constant{{n, 4, 6, 5, 3}, samples.data()};
    const nolk::Vector four{4, f};
    std::vector<nolk::TensorX*> y = {
        b.constTensor(&constant),
        b.convolve(x, {1, 2, 3, 4}, {2, 1}, {1, 2}, {2, 3, 2, 2, 3, false, f, f + 40}),
        b.deConvolve(x, {1, 0, 1, 0}, {2, 3}, {1, 1}, {1, 2, 4, 3, 2, false, f + 1, nullptr}),
        b.pad(x, {0, 1, 2, 255}),
        b.transpose(x, {{0, 2, 3, 1}}),
        b.slice(x, {-1, 1, 4, 2}),
        b.fullConnect(matrix, {1, 7, 3, 1, 1, true, f, f + 21}),
        b.batchNormalize(x, four, {4, f + 4}, {4, f + 8}, {4, f + 12}, 0.001f),
        b.maxPool(x, {2, 3}, {1, 0, 0, 1}, {2, 2}),
        b.avgPool(x, {3, 2}, {0, 1, 1, 0}, {1, 2}),
        b.relu(x),
        b.softmax(x, nolk::Axis::c),
        b.add(x, x),
        b.sub(x, x),
        b.sigmoid(x),
        b.reshape(x, {n, 120, 1, 1, 1}, nolk::TensorLayout::nhwc),
        b.multiply(x, x),
        b.exp(x),
        b.divide(x, x),
        b.reduce(x, {n, 4, 1, 1, 3}, nolk::BasicOp::mean),
        b.l2normalize(x),
        b.clip(x, -1, 6),
        b.lstm(b.input({n, 1, 4, 3, 3}), {nolk::Direction::both, 2, 3, 5, f, f + 200, f + 500, true}),
        b.hardSigmoid(x, 0.2f, 0.5f),
        b.max(x, x),
        b.instanceNormalization(x, 0.01f),
        b.instanceNormalization(x, four, four, 0.01f),
        b.resize(x, {n, 4, 12, 10, 3}, nolk::ResizeMode::nearest, nolk::ResizeTransMode::alignCorners),
        b.resize(x, {n, 4, 3, 3, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel),
        b.abs(x),
        b.leakyRelu(x, 0.1f),
        b.tanh(x),
        b.prelu(x, f, 4),
        b.matMul(x, b.transpose(x, {{0, 1, 3, 2}})),
        b.fullConnect(b.reshape(x, {n, 120, 1, 1, 1}, nolk::TensorLayout::nchw), {1, 16, 120, 1, 1, true, f, nullptr}),
    };
    nolk::TensorX* parts[] = {x, y[0], x};
    y.push_back(b.concat(parts, 3, nolk::Axis::h));
    b.build(y.data(), static_cast<int>(y.size()));
}

// Drives `builder` with a file's records.
void read(Bytes file, nolk::RunnerBuilder& builder, int batch) {
    nolk::ModelReader* reader = nolk_new_model_reader();
    reader->readFromMemory(&builder, batch, file.data(), static_cast<int>(file.size()));
    reader->destroy();
    EXPECT_EQ(popMessages(), std::vector<std::string>{});
}

TEST(ModelWriter, EveryOperationComesBackAsItWasCalled) {
    for (const int version : {1, 2, 3, 4})
        for (const int batch : {1, 3}) {
            ModelWriterImpl writer({version, false, {}});
            recordEverything(writer, batch);
            CallLog expected, actual;
            recordEverything(expected, batch);
            read(writer.bytes(), actual, batch);
            EXPECT_EQ(actual.lines, expected.lines) << "version " << version << ", batch " << batch;
        }
}

TEST(ModelWriter, TheNetworkAboveHasEveryOperation) {
    CallLog log;
    recordEverything(log, 1);
    for (const Operation& operation : operation::kTable) {
        if (!operation.call) continue;
        const std::string call = std::string("= ") + operation.name + " ";
        EXPECT_TRUE(std::any_of(log.lines.begin(), log.lines.end(), [&call](const std::string& line) {
            return line.find(call) != std::string::npos;
        })) << operation.name;
    }
}

TEST(ModelWriter, WrittenReadAndWrittenAgainTheBytesAreTheSame) {
    for (const int version : {1, 2, 3, 4}) {
        std::vector<nolk::HeadInfo> headInfo;
        if (version > 1) headInfo = {{7, {1, 2, 3}}, {-1, {}}, {8, Bytes(300, 0)}};
        ModelWriterImpl first({version, false, headInfo}), second({version, false, headInfo});
        recordEverything(first, 1);
        read(first.bytes(), second, 5);
        ASSERT_FALSE(first.bytes().empty());
        EXPECT_EQ(first.bytes(), second.bytes()) << "version " << version;
    }
}

// The versions whose fields ModelReaderTest does not damage.
TEST(ModelWriter, DamagedFilesAreHarmlessToRead) {
    constexpr unsigned char kDamages[] = {0x01, 0x80, 0xFF};
    const std::size_t step = static_cast<std::size_t>(500 / effort());
    for (const int version : {1, 4}) {
        ModelWriterImpl writer({version, false, {}});
        recordEverything(writer, 1);
        MessageCollector messages;
        for (std::size_t i = 4; i < writer.bytes().size(); i += step) {
            Bytes file = writer.bytes();
            file[i] = static_cast<unsigned char>(file[i] ^ kDamages[i % 3]);
            if (version == 4) reseal(file);
            const Bytes before = file;
            CallLog log;
            try {
                ModelReaderImpl(messages).readFromMemory(&log, 1, file.data(), static_cast<int>(file.size()));
                EXPECT_EQ(file, before) << i;
            } catch (const std::bad_array_new_length&) {
            }
        }
    }
}

// input [2, 3, 4], prelu: what ModelReaderTest reads.
TEST(ModelWriter, WritesTheBytesThatWereWrittenByHand) {
    const struct {
        nolk::ModelFileOptions options;
        const char* file;
    } rows[] = {
        {{1, false, {}}, "434d 0100 0300 0000 0200 0300 0400 0000 2300 0000 0100 0200 0000003f 000000c0 1600 0100"},
        {{2, false, {{7, {'a', 'b', 'c'}}}},
         "434d 0200 0700 0300 616263 0000 0300 0000 02000000 03000000 04000000 0000"
         "2300 0000 0100 0200 0000003f 000000c0 1600 0100"},
        {{3, false, {}},
         "434d 0300 0000 0507 0809 080b0c0d 0d0f1011 16131415 1617"
         "3b19 1a1b 1d1d 1c1f 2021221c 242526e7 3e29 2b2b  db7a04c4"},
        {{4, false, {{7, {'a', 'b', 'c'}}}},
         "434d 0400 0700 0300 616263 0000 0e0e 0f10 13121314 16161718 1d1a1b1c 1d1e"
         "3c20 2122 2224 2726 27 28292a14 2c2d2eef 2631 3333  38a7c0eb"},
    };
    for (const auto& row : rows) {
        ModelWriterImpl writer(row.options);
        float slopes[] = {0.5f, -2.0f};
        nolk::TensorX* y = writer.prelu(writer.input({6, 2, 3, 4, 3}), slopes, 2);
        EXPECT_EQ(writer.build(&y, 1), nullptr);
        EXPECT_EQ(writer.bytes(), hex(row.file));
    }
}

void expectShape(nolk::RunnerBuilder& b, nolk::TensorX* x, nolk::TensorShape s) {
    const nolk::TensorShape t = b.shapeOf(x);
    EXPECT_EQ((std::vector<int>{t.n, t.c, t.h, t.w, t.dims}), (std::vector<int>{s.n, s.c, s.h, s.w, s.dims}));
}

TEST(ModelWriter, ShapesOfResults) {
    ModelWriterImpl b;
    std::vector<float> f(1000);
    nolk::TensorX* const x = b.input({2, 4, 9, 7, 3});
    nolk::TensorX* const m = b.input({2, 6, 1, 1, 1});
    const nolk::Weights w{2, 3, 2, 3, 2, false, f.data(), nullptr};
    expectShape(b, b.convolve(x, {1, 2, 3, 4}, {2, 3}, {2, 1}, w), {2, 6, 4, 5, 3});
    expectShape(b, b.convolve(x, {}, {0, -1}, {1, 1}, w), {2, 6, 1, -4, 3});
    expectShape(b, b.deConvolve(x, {1, 2, 0, 1}, {2, 3}, {2, 1}, w), {2, 6, 18, 19, 3});
    expectShape(b, b.pad(m, {1, 2, 3, 4}), {2, 6, 4, 8, 3});
    expectShape(b, b.maxPool(x, {2, 3}, {1, 0, 0, 1}, {2, 2}), {2, 4, 5, 3, 3});
    expectShape(b, b.fullConnect(x, w), {2, 6, 1, 1, 1});
    expectShape(b, b.transpose(m, {{1, 0, 3, 2}}), {6, 2, 1, 1, 3});
    expectShape(b, b.slice(x, {-2, -5, 100, 2}), {2, 4, 4, 7, 3});
    expectShape(b, b.slice(m, {1, 1, 4, 1}), {2, 3, 1, 1, 1});
    expectShape(b, b.slice(m, {1, 1, 4, 0}), {2, 0, 1, 1, 1});
    expectShape(b, b.lstm(x, {nolk::Direction::both, 2, 7, 3, f.data(), f.data(), nullptr, true}), {2, 4, 9, 6, 3});
    expectShape(b, b.matMul(x, b.transpose(x, {{0, 1, 3, 2}})), {2, 4, 9, 9, 3});
    nolk::TensorX* xs[] = {m, m};
    expectShape(b, b.concat(xs, 2, static_cast<nolk::Axis>(-3)), {2, 12, 1, 1, 1});
    expectShape(b, b.sub(m, x), {2, 6, 1, 1, 1});
    expectShape(b, nullptr, {0, 0, 0, 0, 0});
    EXPECT_EQ(b.relu(nullptr), nullptr);
    EXPECT_EQ(b.add(x, nullptr), nullptr);
}

TEST(ModelWriter, SharedWeightsOfAConvolutionAreRepeated) {
    float weight[] = {1, 2}, bias[] = {3};
    ModelWriterImpl writer({2, false, {}});
    nolk::TensorX* y =
        writer.convolve(writer.input({1, 6, 1, 1, 3}), {}, {1, 1}, {1, 1}, {3, 1, 2, 1, 1, true, weight, bias});
    writer.build(&y, 1);
    CallLog log;
    read(writer.bytes(), log, 1);
    EXPECT_EQ(log.lines[1],
              "#2 = convolve #1 (top 0 bottom 0 left 0 right 0) 1x1 1x1 3x1x2x1x1 {1 2 1 2 1 2} bias {3 3 3}");
}

TEST(ModelWriter, WhatDoesNotFitIsRefusedByNameAndLeavesNoTrace) {
    std::vector<float> v(64);
    float* const f = v.data();
    using Call = std::function<void(ModelWriterImpl&, nolk::TensorX*)>;
    const struct {
        int version;
        Call call;
        const char* message;
    } rows[] = {
        {1,
         [](auto& b, auto*) {
             b.input({1, 40000, 1, 1, 3});
         },
         "input: shape c must be -32768 to 32767 in this file, is 40000"},
        {4,
         [](auto& b, auto*) {
             b.input({1, 2, 0, 3, 3});
         },
         "input: a file has no form for the shape [n, 2, 0, 3] with dims 3"},
        {4,
         [](auto& b, auto*) {
             b.input({1, 2, 2, 3, 1});
         },
         "input: a file has no form for the shape [n, 2, 2, 3] with dims 1"},
        {4,
         [](auto& b, auto*) {
             b.input({2, 2, 2, 3, 3});
         },
         "input: n must be the batch of the shapes before, 1, is 2"},
        {4,
         [](auto& b, auto* x) {
             b.pad(x, {0, 0, 256, 0});
         },
         "pad: padding left must be 0 to 255 in this file, is 256"},
        {4,
         [](auto& b, auto* x) {
             b.pad(x, {-1, 0, 0, 0});
         },
         "pad: padding top must be 0 to 255 in this file, is -1"},
        {4,
         [](auto& b, auto* x) {
             b.maxPool(x, {1, 1}, {}, {1, 32768});
         },
         "maxPool: stride w must be -32768 to 32767 in this file, is 32768"},
        {4,
         [f](auto& b, auto* x) {
             b.convolve(x, {}, {1, 1}, {1, 1}, {1, 1, -1, 1, 1, false, f, nullptr});
         },
         "convolve: weights: the count is negative or above 2^31 - 1"},
        {4,
         [f](auto& b, auto* x) {
             b.fullConnect(x, {1, 65536, 65536, 1, 1, true, f, nullptr});
         },
         "fullConnect: weights: the count is negative or above 2^31 - 1"},
        {4, [f](auto& b, auto* x) { b.prelu(x, f, 40000); },
         "prelu: slopes count must be -32768 to 32767 in this file, is 40000"},
        {4, [](auto& b, auto* x) { b.softmax(x, static_cast<nolk::Axis>(-1)); },
         "softmax: axis must be 0 to 255 in this file, is -1"},
        {4,
         [](auto& b, auto* x) {
             b.slice(x, {4, 0, 1, 1});
         },
         "slice: axis must be -4 to 3, is 4"},
        {4,
         [](auto& b, auto* x) {
             b.transpose(x, {{0, 1, 2, 4}});
         },
         "transpose: axes must be 0 to 3, one is 4"},
        {4, [](auto& b, auto* x) { b.concat(std::vector<nolk::TensorX*>(256, x).data(), 256, nolk::Axis::c); },
         "concat: number of inputs must be 0 to 255 in this file, is 256"},
        {4, [](auto& b, auto*) { b.concat(nullptr, 0, nolk::Axis::c); }, "concat: needs an input"},
        {4,
         [](auto& b, auto* x) {
             b.reshape(x, {2, 12, 1, 1, 1}, nolk::TensorLayout::nchw);
         },
         "reshape: n must be the batch of the shapes before, 1, is 2"},
        {4,
         [f](auto& b, auto* x) {
             b.lstm(x, {nolk::Direction::both, 1, 1, 1, f, f, nullptr, true});
         },
         "lstm: numDirections must be 2 for this direction, is 1"},
    };
    for (const auto& row : rows) {
        ModelWriterImpl writer({row.version, false, {}}), untouched({row.version, false, {}});
        nolk::TensorX* x = writer.input({1, 2, 2, 3, 3});
        nolk::TensorX* same = untouched.input({1, 2, 2, 3, 3});
        try {
            row.call(writer, x);
            ADD_FAILURE() << "expected: " << row.message;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), row.message);
        }
        writer.build(&x, 1);
        untouched.build(&same, 1);
        EXPECT_EQ(writer.bytes(), untouched.bytes()) << row.message;
    }
}

TEST(ModelWriter, ConstantsWithSamplesOfTheirOwnAreRefused) {
    ModelWriterImpl writer;
    float samples[] = {1, 2, 1, 3};
    nolk::Tensor constant{{2, 2, 1, 1, 1}, samples};
    EXPECT_THROW(writer.constTensor(&constant), std::out_of_range);
    samples[3] = 2;
    EXPECT_NE(writer.constTensor(&constant), nullptr);
    constant.data = nullptr;
    EXPECT_THROW(writer.constTensor(&constant), std::invalid_argument);
}

TEST(ModelWriter, BuildsOnce) {
    ModelWriterImpl writer;
    nolk::TensorX* outputs[] = {writer.input({1, 1, 1, 1, 3}), nullptr};
    EXPECT_THROW(writer.build(outputs, 2), std::invalid_argument);
    writer.build(outputs, 1);
    EXPECT_THROW(writer.build(outputs, 1), std::logic_error);
    EXPECT_THROW(writer.relu(outputs[0]), std::logic_error);
}

TEST(ModelWriter, OptionsThatCannotBeAreRefused) {
    const nolk::ModelFileOptions options[] = {{0, false, {}},
                                              {5, false, {}},
                                              {1, false, {{1, {}}}},
                                              {2, false, {{0, {}}}},
                                              {2, false, {{32768, {}}}},
                                              {2, false, {{1, Bytes(32768, 0)}}}};
    for (const nolk::ModelFileOptions& o : options) EXPECT_THROW(ModelWriterImpl{o}, std::out_of_range);
}

Bytes floatsRecord(const std::vector<float>& values, bool lossy) {
    const nolk::ModelFileOptions options{4, lossy, {}};
    RecordWriter record(options, operationOf<&operation::constTensor>());
    record.floats(values.data(), {static_cast<int>(values.size())}, "data");
    return Bytes(record.bytes().begin() + 2, record.bytes().end());
}

TEST(ModelWriter, FloatsAreIndexedWhereThatIsExactAndSmaller) {
    const struct {
        const char* name;
        int count;
        int distinct;
        bool lossy;
        std::size_t bytes;
    } rows[] = {
        {"one too few to gain", 341, 2, true, 1 + 4 * 341},      {"enough to gain", 342, 2, false, 1 + 1024 + 342},
        {"256 values", 2000, 256, false, 1 + 1024 + 2000},       {"257 values", 2000, 257, false, 1 + 4 * 2000},
        {"257 values, lossy", 2000, 257, true, 1 + 1024 + 2000},
    };
    for (const auto& row : rows) {
        std::vector<float> values;
        for (int i = 0; i < row.count; ++i) values.push_back(static_cast<float>(i % row.distinct));
        EXPECT_EQ(floatsRecord(values, row.lossy).size(), row.bytes) << row.name;
    }
}

TEST(Codebook, ExactKeepsEveryBit) {
    std::vector<float> values(400, 0.0f);
    values[1] = -0.0f;
    values[2] = std::numeric_limits<float>::quiet_NaN();
    values[3] = std::numeric_limits<float>::infinity();
    const auto book = exactCodebook(values.data(), values.size());
    ASSERT_TRUE(book);
    std::vector<float> restored;
    for (const unsigned char i : book->indices) restored.push_back(book->values[i]);
    EXPECT_EQ(std::memcmp(restored.data(), values.data(), values.size() * sizeof(float)), 0);
    EXPECT_FALSE(nearestCodebook(values.data(), values.size())) << "not for infinities";
}

// Sums of uniform numbers are nearly normal, as trained weights are. 256 evenly spread values would leave an error of
// (range / 256)^2 / 12.
TEST(Codebook, NearestBeatsAnEvenGridAndKeepsOutliers) {
    Values random(7);
    std::vector<float> values;
    for (int i = 0; i < 20000; ++i) {
        float sum = 0.0f;
        for (int k = 0; k < 12; ++k) sum += random.real();
        values.push_back(sum);
    }
    values.push_back(40.0f);
    const auto book = nearestCodebook(values.data(), values.size());
    ASSERT_TRUE(book);
    double error = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double chosen = std::fabs(values[i] - book->values[book->indices[i]]);
        for (const float other : book->values) ASSERT_LE(chosen, std::fabs(values[i] - other)) << i;
        error += chosen * chosen;
    }
    const double evenGrid = std::pow(46.0 / 256, 2) / 12;
    RecordProperty("meanSquareError", std::to_string(error / 20001));
    EXPECT_LT(error / 20001, evenGrid / 8);
    EXPECT_NEAR(book->values[book->indices.back()], 40.0f, 0.01f);
}

}  // namespace
