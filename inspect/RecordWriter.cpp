#include "inspect/RecordWriter.h"

#include <algorithm>
#include <cassert>
#include <climits>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include "inspect/Codebook.h"

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "floats are written as they stand in memory");

constexpr std::size_t kTableBytes = 1024;

// Whether an array of that many floats is smaller as a table and indices.
bool codebookIsSmaller(std::size_t count) { return kTableBytes + count < count * sizeof(float); }

std::optional<Codebook> codebookFor(const nolk::ModelFileOptions& options, const float* values, std::size_t count) {
    if (!codebookIsSmaller(count)) return std::nullopt;
    std::optional<Codebook> codebook = exactCodebook(values, count);
    return codebook || !options.lossy ? codebook : nearestCodebook(values, count);
}

}  // namespace

RecordWriter::RecordWriter(const nolk::ModelFileOptions& options, const Operation& operation)
    : options_(&options), operation_(operation.name) {
    i16(operation.code, "op code");
}

void RecordWriter::refuse(const std::string& why) const { throw std::out_of_range(operation_ + (": " + why)); }

void RecordWriter::integer(std::int64_t value, int bytes, std::int64_t low, std::int64_t high,
                           const std::string& field) {
    if (value < low || value > high)
        refuse(field + " must be " + std::to_string(low) + " to " + std::to_string(high) + " in this file, is " +
               std::to_string(value));
    for (int i = 0; i < bytes; ++i) bytes_.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

void RecordWriter::i16(std::int64_t value, const std::string& field) { integer(value, 2, INT16_MIN, INT16_MAX, field); }

void RecordWriter::i32(std::int64_t value, const std::string& field) { integer(value, 4, INT32_MIN, INT32_MAX, field); }

void RecordWriter::u8(std::int64_t value, const std::string& field) { integer(value, 1, 0, 255, field); }

void RecordWriter::dim(std::int64_t value, const std::string& field) {
    options_->version == 1 ? i16(value, field) : i32(value, field);
}

void RecordWriter::field(const std::string& name, const Argument& argument) {
    std::visit([&](const auto& v) { value(v, name); }, argument);
}

template <typename Enum>
void RecordWriter::value(Enum value, const std::string& field) {
    static_assert(std::is_enum_v<Enum>);
    u8(static_cast<int>(value), field);
}

void RecordWriter::value(float value, const std::string&) { plainFloats(&value, 1); }

void RecordWriter::value(nolk::TensorShape value, const std::string&) { shape(value); }

void RecordWriter::value(nolk::Tensor, const std::string&) { assert(!"its id stands in between"); }

void RecordWriter::value(nolk::Padding padding, const std::string&) {
    u8(padding.top, "padding top");
    u8(padding.bottom, "padding bottom");
    u8(padding.left, "padding left");
    u8(padding.right, "padding right");
}

void RecordWriter::value(nolk::DimsHW dims, const std::string& field) {
    i16(dims.h, field + " h");
    i16(dims.w, field + " w");
}

void RecordWriter::value(nolk::Perm perm, const std::string&) {
    for (const int axis : perm.axes) i16(axis, "permutation");
}

void RecordWriter::value(nolk::SlicePos pos, const std::string&) {
    i16(pos.axis, "axis");
    i16(pos.start, "start");
    i16(pos.end, "end");
    i16(pos.step, "step");
}

// Rows and columns of 0 denote a matrix, so a tensor with dims 3 cannot have 0 rows or columns.
void RecordWriter::shape(nolk::TensorShape shape) {
    const bool matrix = shape.dims == 1;
    if (matrix ? shape.h != 1 || shape.w != 1 : shape.dims != 3 || shape.h == 0 || shape.w == 0)
        refuse("a file has no form for the shape [n, " + std::to_string(shape.c) + ", " + std::to_string(shape.h) +
               ", " + std::to_string(shape.w) + "] with dims " + std::to_string(shape.dims));
    dim(shape.c, "shape c");
    dim(matrix ? 0 : shape.h, "shape h");
    dim(matrix ? 0 : shape.w, "shape w");
}

void RecordWriter::value(nolk::Vector vector, const std::string& field) {
    i16(vector.count, field + " count");
    floats(vector.data, {vector.count}, field);
}

void RecordWriter::weightDims(const nolk::Weights& weights) {
    i16(weights.groups, "groups");
    dim(weights.outChannels, "outChannels");
    dim(weights.inChannels, "inChannels");
    dim(weights.kernelH, "kernelH");
    dim(weights.kernelW, "kernelW");
}

// A record cannot store weights that groups share, so each group gets its own copy.
void RecordWriter::groups(const nolk::Weights& weights, const float* values, std::initializer_list<int> factorsOfOne,
                          const std::string& field) {
    const int countOfOne = floatCount(factorsOfOne, field);
    floatCount({weights.groups, countOfOne}, field);
    if (!weights.shared || weights.groups <= 1 || !values) return floats(values, {weights.groups, countOfOne}, field);
    std::vector<float> repeated;
    for (int g = 0; g < weights.groups; ++g) repeated.insert(repeated.end(), values, values + countOfOne);
    floats(repeated.data(), {weights.groups, countOfOne}, field);
}

void RecordWriter::value(const nolk::Weights& w, const std::string&) {
    weightDims(w);
    groups(w, w.weight, {w.outChannels, w.inChannels, w.kernelH, w.kernelW}, "weights");
    u8(w.bias ? 1 : 0, "has bias");
    if (w.bias) groups(w, w.bias, {w.outChannels}, "bias");
}

void RecordWriter::value(const SharedWeights& shared, const std::string&) {
    const nolk::Weights& w = shared.weights;
    weightDims(w);
    floats(w.weight, {w.outChannels, w.inChannels, w.kernelH, w.kernelW}, "weights");
    optionalFloats(w.bias, {w.outChannels}, "bias");
}

void RecordWriter::value(const nolk::LstmWeights& w, const std::string&) {
    const int numDirections = w.direction == nolk::Direction::both ? 2 : 1;
    if (w.numDirections != numDirections)
        refuse("numDirections must be " + std::to_string(numDirections) + " for this direction, is " +
               std::to_string(w.numDirections));
    i16(static_cast<int>(w.direction), "direction");
    i32(w.inputSize, "inputSize");
    i32(w.hiddenSize, "hiddenSize");
    floats(w.inputWeights, {w.inputSize, numDirections, w.hiddenSize, 4}, "input weights");
    floats(w.recurrentWeights, {w.hiddenSize, numDirections, w.hiddenSize, 4}, "recurrent weights");
    // The reader always sets splitBias, so a bias without it, which is not used, must be left out.
    optionalFloats(w.splitBias ? w.bias : nullptr, {numDirections, w.hiddenSize, 8}, "bias");
}

void RecordWriter::optionalFloats(const float* values, std::initializer_list<int> factors, const std::string& field) {
    u8(values ? 1 : 0, "has bias");
    if (values) floats(values, factors, field);
}

int RecordWriter::floatCount(std::initializer_list<int> factors, const std::string& field) const {
    if (std::find(factors.begin(), factors.end(), 0) != factors.end()) return 0;
    std::int64_t count = 1;
    for (const int factor : factors) {
        count *= factor;
        if (factor < 0 || count > INT_MAX) refuse(field + ": the count is negative or above 2^31 - 1");
    }
    return static_cast<int>(count);
}

void RecordWriter::floats(const float* values, std::initializer_list<int> factors, const std::string& field) {
    const auto count = static_cast<std::size_t>(floatCount(factors, field));
    if (count > 0 && !values) throw std::invalid_argument(operation_ + (": " + field + " is null"));
    if (options_->version < 4) return plainFloats(values, count);

    const std::optional<Codebook> codebook = codebookFor(*options_, values, count);
    u8(codebook ? 8 : 0, "compress bits");
    if (!codebook) return plainFloats(values, count);
    plainFloats(codebook->values.data(), codebook->values.size());
    bytes_.insert(bytes_.end(), codebook->indices.begin(), codebook->indices.end());
}

void RecordWriter::plainFloats(const float* values, std::size_t count) {
    if (count == 0) return;
    const std::size_t begin = bytes_.size();
    bytes_.resize(begin + count * sizeof(float));
    std::memcpy(bytes_.data() + begin, values, count * sizeof(float));
}
