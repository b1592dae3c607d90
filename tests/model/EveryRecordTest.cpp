// Every kind of record, from the bytes of a file to outputs: what comes out is what the same calls of a builder
// compute.
#include <gtest/gtest.h>
#include <nolk.h>

#include "inspect/ModelWriterImpl.h"
#include "support/Net.h"
#include "support/values.h"

namespace {

using Builder = nolk::RunnerBuilder;
using X = nolk::TensorX;

constexpr int kBatch = 2;

// Arrays that the records carry; convolutions and the like take as many floats as they need.
struct Arrays {
    Arrays() : weights(Values(51).reals(200)), biases(Values(52).reals(200)) {
        for (float& v : biases) v = std::fabs(v);
    }
    nolk::Weights kernel(int out, int h, int w) { return {1, out, 1, h, w, false, weights.data(), biases.data()}; }
    nolk::Vector one(int i) { return {1, biases.data() + i}; }

    std::vector<float> weights, biases;
};

struct Row {
    int code;
    // x and y are [n, 1, 4, 4].
    X* (*record)(Builder* b, X* x, X* y, int n, Arrays& a);
};

const Row kRows[] = {
    {1,
     [](Builder* b, X*, X*, int n, Arrays& a) {
         std::vector<float> samples;
         for (int i = 0; i < n; ++i) samples.insert(samples.end(), a.weights.begin(), a.weights.begin() + 5);
         nolk::Tensor constant{{n, 5, 1, 1, 1}, samples.data()};
         return b->constTensor(&constant);
     }},
    {2,
     [](Builder* b, X* x, X*, int, Arrays& a) {
         return b->convolve(x, {1, 0, 1, 0}, {2, 1}, {1, 1}, a.kernel(3, 3, 2));
     }},
    {3,
     [](Builder* b, X* x, X*, int, Arrays&) {
         return b->pad(x, {1, 2, 3, 4});
     }},
    {4,
     [](Builder* b, X* x, X*, int, Arrays&) {
         return b->transpose(x, {{0, 2, 3, 1}});
     }},
    {5,
     [](Builder* b, X* x, X*, int, Arrays&) {
         return b->slice(x, {-1, 1, 4, 2});
     }},
    {6,
     [](Builder* b, X* x, X*, int, Arrays& a) {
         nolk::Weights w = a.kernel(3, 1, 1);
         w.shared = true;
         return b->fullConnect(x, w);
     }},
    {7, [](Builder* b, X* x, X*, int,
           Arrays& a) { return b->batchNormalize(x, a.one(1), a.one(2), a.one(3), a.one(4), 0.01f); }},
    {8,
     [](Builder* b, X* x, X*, int, Arrays&) {
         return b->maxPool(x, {2, 3}, {0, 1, 1, 0}, {2, 1});
     }},
    {9,
     [](Builder* b, X* x, X*, int, Arrays&) {
         return b->avgPool(x, {2, 3}, {0, 1, 1, 0}, {2, 1});
     }},
    {10, [](Builder* b, X* x, X*, int, Arrays&) { return b->relu(x); }},
    {11, [](Builder* b, X* x, X*, int, Arrays&) { return b->softmax(x, nolk::Axis::w); }},
    {12,
     [](Builder* b, X* x, X* y, int, Arrays&) {
         X* parts[] = {y, x, y};
         return b->concat(parts, 3, nolk::Axis::h);
     }},
    {13, [](Builder* b, X* x, X* y, int, Arrays&) { return b->add(x, y); }},
    {14, [](Builder* b, X* x, X* y, int, Arrays&) { return b->sub(x, y); }},
    {15, [](Builder* b, X* x, X*, int, Arrays&) { return b->sigmoid(x); }},
    {16,
     [](Builder* b, X* x, X*, int n, Arrays&) {
         return b->reshape(x, {n, 16, 1, 1, 1}, nolk::TensorLayout::nchw);
     }},
    {17, [](Builder* b, X* x, X* y, int, Arrays&) { return b->multiply(x, y); }},
    {18, [](Builder* b, X* x, X*, int, Arrays&) { return b->exp(x); }},
    {19, [](Builder* b, X* x, X* y, int, Arrays&) { return b->divide(x, y); }},
    {20,
     [](Builder* b, X* x, X*, int n, Arrays&) {
         return b->reduce(x, {n, 1, 4, 1, 3}, nolk::BasicOp::minimum);
     }},
    {21, [](Builder* b, X* x, X*, int, Arrays&) { return b->l2normalize(x); }},
    {23, [](Builder* b, X* x, X*, int, Arrays&) { return b->clip(x, -0.5f, 0.25f); }},
    {24,
     [](Builder* b, X* x, X*, int, Arrays& a) {
         return b->lstm(x, {nolk::Direction::both, 2, 4, 3, a.weights.data(), a.biases.data(), a.biases.data(), true});
     }},
    {25, [](Builder* b, X* x, X*, int, Arrays&) { return b->hardSigmoid(x, 0.7f, 0.4f); }},
    {26, [](Builder* b, X* x, X* y, int, Arrays&) { return b->max(x, y); }},
    {27, [](Builder* b, X* x, X*, int, Arrays&) { return b->instanceNormalization(x, 0.1f); }},
    {28,
     [](Builder* b, X* x, X*, int n,
        Arrays&) { return b->resize(x, {n, 1, 7, 3, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::alignCorners); }},
    {29, [](Builder* b, X* x, X*, int, Arrays&) { return b->abs(x); }},
    {30, [](Builder* b, X* x, X*, int, Arrays&) { return b->leakyRelu(x, 0.1f); }},
    {31, [](Builder* b, X* x, X*, int, Arrays&) { return b->tanh(x); }},
    {32, [](Builder* b, X* x, X*, int,
            Arrays& a) { return b->deConvolve(x, {0, 1, 0, 0}, {2, 2}, {1, 1}, a.kernel(3, 2, 3)); }},
    {33,
     [](Builder* b, X* x, X*, int n,
        Arrays&) { return b->resize(x, {n, 1, 3, 9, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel); }},
    {34, [](Builder* b, X* x, X*, int, Arrays& a) { return b->instanceNormalization(x, a.one(5), a.one(6), 0.1f); }},
    {35, [](Builder* b, X* x, X*, int, Arrays& a) { return b->prelu(x, a.weights.data(), 1); }},
    {36, [](Builder* b, X* x, X* y, int, Arrays&) { return b->matMul(x, y); }},
};

std::vector<unsigned char> fileOf(const Row& row, int version, Arrays arrays) {
    nolk::ModelFileOptions options;
    options.version = version;
    ModelWriterImpl writer(options);
    X* x = writer.input({1, 1, 4, 4, 3});
    X* y = writer.input({1, 1, 4, 4, 3});
    X* out = row.record(&writer, x, y, 1, arrays);
    writer.build(&out, 1);
    return writer.bytes();
}

TEST(EveryRecord, ComputesWhatTheBuilderCallComputes) {
    const Arrays arrays;
    const nolk::TensorShape shape{kBatch, 1, 4, 4, 3};
    const std::vector<float> x = Values(53).reals(32), y = Values(54).reals(32);
    for (const Row& row : kRows)
        for (int version = 1; version <= 4; ++version) {
            SCOPED_TRACE(testing::Message() << "record " << row.code << ", version " << version);
            std::vector<unsigned char> file = fileOf(row, version, arrays);
            // Version 1: six bytes in front, two inputs of ten bytes (record 0), then the record; at the end an output
            // (22).
            if (version == 1) {
                ASSERT_EQ(file[6], 0);
                ASSERT_EQ(file[26], row.code);
                ASSERT_EQ(file[file.size() - 4], 22);
            }

            Arrays own = arrays;  // building may rewrite weights
            Net net;
            X* in = net.input(shape, x);
            X* other = net.input(shape, y);
            X* out = row.record(net.operator->(), in, other, kBatch, own);
            const nolk::TensorShape outShape = net->shapeOf(out);
            const std::vector<float> expected = net.run({out})[0];

            nolk::Runner* runner = nolk_new_runner(nullptr, file.data(), static_cast<int>(file.size()), kBatch);
            ASSERT_NE(runner, nullptr);
            std::vector<float> xs = x, ys = y, results(expected.size());
            nolk::Tensor inputs[] = {{shape, xs.data()}, {shape, ys.data()}}, output{outShape, results.data()};
            EXPECT_TRUE(runner->run(inputs, 2, &output, 1));
            expectSameBits(results, expected);
            runner->destroy();
        }
}

}  // namespace
