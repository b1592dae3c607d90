#include "inspect/ModelWriterImpl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/Codebook.h"
#include "inspect/RecordWriter.h"
#include "support/CallLog.h"
#include "support/everyOperation.h"
#include "support/messages.h"
#include "support/modelBytes.h"

namespace {

// A network with every record of the format, for a batch of n.
void recordEverything(nolk::RunnerBuilder& b, int n) {
    const Shape shape{n, 2, 6, 6, 3};
    std::vector<float> samples;
    for (int i = 0; i < n * 72; ++i) samples.push_back(static_cast<float>(i % 72));
    nolk::Tensor constant{shape, samples.data()};
    X const x = b.input(shape);
    Recording recording(b, {x, b.constTensor(&constant)});
    Xs outputs;
    for (const OperationCase& o : everyOperation(shape)) outputs.push_back(o.record(recording));
    b.build(outputs.data(), static_cast<int>(outputs.size()));
}

// Drives `builder` with a file's records.
void read(Bytes file, nolk::RunnerBuilder& builder, int batch) {
    nolk::ModelReader* reader = nolk_new_model_reader();
    reader->readFromMemory(&builder, batch, file.data(), static_cast<int>(file.size()));
    reader->destroy();
    EXPECT_EQ(popMessages(), std::vector<std::string>{});
}

TEST(ModelWriter, EveryOperationComesBackAsItWasCalledAndIsWrittenAsItWasRead) {
    for (const int version : {1, 2, 3, 4})
        for (const int batch : {1, 3}) {
            SCOPED_TRACE(testing::Message() << "version " << version << ", batch " << batch);
            std::vector<nolk::HeadInfo> headInfo;
            if (version > 1) headInfo = {{7, {1, 2, 3}}, {-1, {}}, {8, Bytes(300, 0)}};
            ModelWriterImpl writer({version, false, headInfo}), again({version, false, headInfo});
            recordEverything(writer, batch);
            CallLog expected, actual;
            recordEverything(expected, batch);
            read(writer.bytes(), actual, batch);
            EXPECT_EQ(actual.lines, expected.lines);
            read(writer.bytes(), again, 5);
            EXPECT_EQ(writer.bytes(), again.bytes());
        }
}

TEST(ModelWriter, TheNetworkAboveHasEveryOperation) {
    CallLog log;
    recordEverything(log, 1);
    for (const Operation& operation : operation::kTable) {
        std::size_t found = 0;
        for (const std::string& line : log.lines)
            found += line.find(std::string("= ") + operation.name + " ") != line.npos;
        EXPECT_TRUE(found > 0 || !operation.call) << operation.name;
    }
}

TEST(ModelWriter, WritesTheBytesThatWereWrittenByHand) {
    for (int version = 1; version <= 4; ++version) {
        std::vector<nolk::HeadInfo> headInfo;
        if (version % 2 == 0) headInfo = {{7, {'a', 'b', 'c'}}};
        ModelWriterImpl writer({version, false, headInfo});
        float slopes[] = {0.5f, -2.0f};
        nolk::TensorX* y = writer.prelu(writer.input({6, 2, 3, 4, 3}), slopes, 2);
        EXPECT_EQ(writer.build(&y, 1), nullptr);
        EXPECT_EQ(writer.bytes(), hex(kGolden[version - 1]));
    }
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
    using B = nolk::RunnerBuilder;
    using nolk::Axis;
    static float f[64] = {};
    static const Shape wide{1, 40000, 1, 1, 3}, empty{1, 2, 0, 3, 3}, planes{1, 2, 2, 3, 1}, two{2, 2, 2, 3, 3};
    static const nolk::DimsHW one{1, 1};
    static const nolk::Padding none, top{-1, 0, 0, 0}, left{0, 0, 256, 0};
    static const nolk::Weights negative{1, 1, -1, 1, 1, false, f, nullptr},
        many{1, 65536, 65536, 1, 1, true, f, nullptr};
    static const nolk::LstmWeights both{nolk::Direction::both, 1, 1, 1, f, f, nullptr, true};
    static const nolk::SlicePos slice{4, 0, 1, 1};
    static const nolk::Perm perm{{0, 1, 2, 4}};
    const struct {
        int version;
        const char* message;
        void (*call)(B&, X);
    } rows[] = {
        {1, "input: shape c must be -32768 to 32767 in this file, is 40000", [](B& b, X) { b.input(wide); }},
        {4, "input: a file has no form for the shape [n, 2, 0, 3] with dims 3", [](B& b, X) { b.input(empty); }},
        {4, "input: a file has no form for the shape [n, 2, 2, 3] with dims 1", [](B& b, X) { b.input(planes); }},
        {4, "input: n must be the batch of the shapes before, 1, is 2", [](B& b, X) { b.input(two); }},
        {4, "reshape: n must be the batch of the shapes before, 1, is 2",
         [](B& b, X x) { b.reshape(x, two, nolk::TensorLayout::nchw); }},
        {4, "pad: padding left must be 0 to 255 in this file, is 256", [](B& b, X x) { b.pad(x, left); }},
        {4, "pad: padding top must be 0 to 255 in this file, is -1", [](B& b, X x) { b.pad(x, top); }},
        {4, "convolve: weights: the count is negative or above 2^31 - 1",
         [](B& b, X x) { b.convolve(x, none, one, one, negative); }},
        {4, "fullConnect: weights: the count is negative or above 2^31 - 1", [](B& b, X x) { b.fullConnect(x, many); }},
        {4, "prelu: slopes count must be -32768 to 32767 in this file, is 40000",
         [](B& b, X x) { b.prelu(x, f, 40000); }},
        {4, "softmax: axis must be 0 to 255 in this file, is -1",
         [](B& b, X x) { b.softmax(x, static_cast<Axis>(-1)); }},
        {4, "slice: axis must be -4 to 3, is 4", [](B& b, X x) { b.slice(x, slice); }},
        {4, "transpose: axes must be 0 to 3, one is 4", [](B& b, X x) { b.transpose(x, perm); }},
        {4, "concat: number of inputs must be 0 to 255 in this file, is 256",
         [](B& b, X x) { b.concat(Xs(256, x).data(), 256, Axis::c); }},
        {4, "concat: needs an input", [](B& b, X) { b.concat(nullptr, 0, Axis::c); }},
        {4, "lstm: numDirections must be 2 for this direction, is 1", [](B& b, X x) { b.lstm(x, both); }},
    };
    for (const auto& row : rows) {
        ModelWriterImpl writer({row.version, false, {}}), untouched({row.version, false, {}});
        X x = writer.input({1, 2, 2, 3, 3}), same = untouched.input({1, 2, 2, 3, 3});
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

TEST(ModelWriter, OptionsAndConstantsThatCannotBeAreRefusedAndCallsAfterBuild) {
    const nolk::ModelFileOptions options[] = {{0, false, {}},
                                              {5, false, {}},
                                              {1, false, {{1, {}}}},
                                              {2, false, {{0, {}}}},
                                              {2, false, {{32768, {}}}},
                                              {2, false, {{1, Bytes(32768, 0)}}}};
    for (const nolk::ModelFileOptions& o : options) EXPECT_THROW(ModelWriterImpl{o}, std::out_of_range);
    ModelWriterImpl writer;
    float samples[] = {1, 2, 1, 3};
    nolk::Tensor constant{{2, 2, 1, 1, 1}, samples};
    EXPECT_THROW(writer.constTensor(&constant), std::out_of_range) << "samples differ";
    samples[3] = 2;
    X outputs[] = {writer.constTensor(&constant), nullptr};
    constant.data = nullptr;
    EXPECT_THROW(writer.constTensor(&constant), std::invalid_argument);
    EXPECT_EQ(writer.add(outputs[0], nullptr), nullptr);
    EXPECT_THROW(writer.build(outputs, 2), std::invalid_argument);
    writer.build(outputs, 1);
    EXPECT_THROW(writer.build(outputs, 1), std::logic_error);
    EXPECT_THROW(writer.relu(outputs[0]), std::logic_error);
}

TEST(ModelWriter, FloatsAreIndexedWhereThatIsExactAndSmaller) {
    const struct {
        int count, distinct;
        bool lossy;
        std::size_t bytes;
    } rows[] = {{341, 2, true, 1 + 4 * 341},  // one too few to gain
                {342, 2, false, 1 + 1024 + 342},
                {2000, 256, false, 1 + 1024 + 2000},
                {2000, 257, false, 1 + 4 * 2000},
                {2000, 257, true, 1 + 1024 + 2000}};
    for (const auto& row : rows) {
        std::vector<float> values;
        for (int i = 0; i < row.count; ++i) values.push_back(static_cast<float>(i % row.distinct));
        const nolk::ModelFileOptions options{4, row.lossy, {}};
        RecordWriter record(options, operationOf<&operation::constTensor>());
        record.floats(values.data(), {row.count}, "data");
        EXPECT_EQ(record.bytes().size() - 2, row.bytes) << row.count << ", distinct " << row.distinct;
    }
}

TEST(Codebook, ExactKeepsEveryBit) {
    const std::vector<float> values = valuesWithSpecials(1, 200);
    const auto book = exactCodebook(values.data(), values.size());
    ASSERT_TRUE(book);
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(std::memcmp(&book->values[book->indices[i]], &values[i], sizeof(float)), 0) << values[i];
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
    EXPECT_LT(error / 20001, evenGrid / 8);
    EXPECT_NEAR(book->values[book->indices.back()], 40.0f, 0.01f);
}

}  // namespace
