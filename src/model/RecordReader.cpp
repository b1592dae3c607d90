#include "model/RecordReader.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

#include "memory/FloatKeeper.h"
#include "memory/optionalInterface.h"

namespace {

// The product of the factors. Throws what new throws for an array of that length if the product is negative or too
// large. Zeros are handled first: without them, a product that is too large cannot become smaller again.
int floatCount(std::initializer_list<int> factors) {
    if (std::find(factors.begin(), factors.end(), 0) != factors.end()) return 0;
    std::int64_t count = 1;
    for (const int factor : factors) {
        count *= factor;
        if (count > INT_MAX || count < -INT_MAX) throw std::bad_array_new_length();
    }
    if (count < 0) throw std::bad_array_new_length();
    return static_cast<int>(count);
}

// When a file ends within the indices of a codebook, at most this many floats are written for the missing ones, counted
// over all samples of the batch: 64 MiB. They are written for other builders only: the built-in one does not use them
// before build, and such a load never comes to build.
constexpr int kMaxMissing = 1 << 24;

}  // namespace

// Rows or columns of 0 mark a matrix [n, c].
nolk::TensorShape RecordReader::shape() {
    const int c = dim(), h = dim(), w = dim();
    if (h == 0 || w == 0) return {batch_, c, 1, 1, 1};
    return {batch_, c, h, w, 3};
}

nolk::Vector RecordReader::vector() {
    const int count = i16();
    return {count, floats({count})};
}

nolk::Weights RecordReader::weightDims() {
    nolk::Weights weights;
    weights.groups = i16();
    weights.outChannels = dim();
    weights.inChannels = dim();
    weights.kernelH = dim();
    weights.kernelW = dim();
    return weights;
}

nolk::Weights RecordReader::convolutionWeights() {
    nolk::Weights w = weightDims();
    w.weight = floats({w.groups, w.outChannels, w.inChannels, w.kernelH, w.kernelW});
    w.bias = optionalFloats({w.groups, w.outChannels});
    return w;
}

nolk::Weights RecordReader::fullConnectWeights() {
    nolk::Weights w = weightDims();
    w.shared = true;
    w.weight = floats({w.outChannels, w.inChannels, w.kernelH, w.kernelW});
    w.bias = optionalFloats({w.outChannels});
    return w;
}

nolk::LstmWeights RecordReader::lstmWeights() {
    nolk::LstmWeights w;
    w.direction = static_cast<nolk::Direction>(i16());
    w.numDirections = w.direction == nolk::Direction::both ? 2 : 1;
    w.inputSize = i32();
    w.hiddenSize = i32();
    w.inputWeights = floats({w.inputSize, w.numDirections, w.hiddenSize, 4});
    w.recurrentWeights = floats({w.hiddenSize, w.numDirections, w.hiddenSize, 4});
    w.bias = optionalFloats({w.numDirections, w.hiddenSize, 8});
    w.splitBias = true;
    return w;
}

float* RecordReader::optionalFloats(std::initializer_list<int> factors) {
    const bool present = u8() != 0;
    return present ? floats(factors) : nullptr;
}

float* RecordReader::floats(std::initializer_list<int> factors) {
    const int count = floatCount(factors);
    float* array = newArray(count);
    // A float takes at least one byte in the file, so the file cannot hold more floats than bytes. Missing indices
    // count as 0, but at most kMaxMissing of them are written: a small file must not make the library touch gigabytes.
    // A load with missing indices fails in any case.
    const std::int64_t left = in_.remaining();
    const std::int64_t most = left + (isForHost() ? std::max(kMaxMissing / batch_, 1) : 1);
    floatsRead_ = in_.readFloats(array, static_cast<int>(std::min<std::int64_t>(count, most)), version_ > 3);
    floatBytes_ += left - in_.remaining();
    // A builder that only looks must not spend time on zeros that the file does not contain.
    return count > 0 && floatsRead_ == 0 && samples_ == Samples::one ? nullptr : array;
}

nolk::Tensor RecordReader::constant() {
    const nolk::TensorShape shape = this->shape();
    const int count = floatCount({shape.c, shape.h, shape.w});
    float* const sample = floats({count});
    if (batch_ == 1 || samples_ == Samples::one) return {shape, sample};
    float* samples = newArray(floatCount({batch_, count}));
    for (int n = 0; n < batch_ && floatsRead_ > 0; ++n)
        std::copy_n(sample, floatsRead_, samples + std::int64_t{n} * count);
    return {shape, samples};
}

bool RecordReader::isForHost() const { return samples_ == Samples::all && !optionalInterface<FloatKeeper>(builder_); }

// Never null, because a null bias means that there is no bias.
float* RecordReader::newArray(int count) {
    FloatBuffer array = zeroedFloats(static_cast<std::size_t>(std::max(count, 0)));
    if (FloatKeeper* const keeper = optionalInterface<FloatKeeper>(builder_)) return keeper->keep(std::move(array));
    model_.arrays.push_back(std::move(array));
    return model_.arrays.back().get();
}
