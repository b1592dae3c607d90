#include "model/RecordReader.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace {

// The product, or the failure of an array of that length. Without zeros no factor can bring a product back that has
// become too large.
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

// Floats that may be made of nothing: four megabytes.
constexpr int kHarmlessCount = 1 << 20;

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
    // A count above the bytes that are left cannot be met in any form. A large one fails the load even in a form that
    // is unknown, before layers copy what no data backs.
    const std::int64_t left = in_.remaining();
    const bool mayBePresent = count <= left;
    in_.readFloats(array, static_cast<int>(std::min<std::int64_t>(count, left + 1)), version_ > 3);
    floatBytes_ += left - in_.remaining();
    if (!mayBePresent && count > kHarmlessCount) in_.step(in_.remaining() + 1);
    return array;
}

float* RecordReader::repeatedSample(nolk::TensorShape& shape) {
    const int count = floatCount({shape.c, shape.h, shape.w});
    const int countOfAll = floatCount({batch_, count});
    const bool mayBePresent = count <= in_.remaining();
    const float* sample = floats({count});
    float* samples = newArray(countOfAll);
    // Zeros stand for what is not there. A builder copies them, so of too many it sees none; the load fails all the
    // same.
    if (!mayBePresent || overflowed()) {
        if (countOfAll > kHarmlessCount) shape.c = 0;
        return samples;
    }
    for (int n = 0; n < batch_ && count > 0; ++n)
        std::memcpy(samples + std::int64_t{n} * count, sample, static_cast<std::size_t>(count) * sizeof(float));
    return samples;
}

// Zeroed by the system page by page, as they are touched: a count in a file costs nothing until data backs it. Never
// null, since a null bias means none.
float* RecordReader::newArray(int count) {
    const std::size_t atLeastOne = static_cast<std::size_t>(std::max(count, 1));
    FloatArray array(static_cast<float*>(std::calloc(atLeastOne, sizeof(float))));
    if (!array) throw std::bad_alloc();
    model_.arrays.push_back(std::move(array));
    return model_.arrays.back().get();
}
