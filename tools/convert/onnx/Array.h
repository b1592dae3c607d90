// The values of an ONNX tensor in memory. Elements are dense, slowest dimension first.
//   Array a = arrayOf(initializer, folder);          // reads every form in which a file stores values
//   Array b = intArray({1, 64, -1});                 // INT64, [3]
//   for (float value : a.floats()) ...
// Floats of 16, 32 and 64 bits are kept as 32 bits, integers and booleans as 64 bits; type tells what the file had.
// Copies share their values, which never change: a copy is cheap. Strings and complex numbers are refused.
#pragma once

#include <onnx/onnx_pb.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace convert {

using Dims = std::vector<std::int64_t>;

class Array {
public:
    Array() = default;
    Array(int type, Dims dims, std::vector<float> values);
    Array(int type, Dims dims, std::vector<std::int64_t> values);

    int type() const { return type_; }  // onnx::TensorProto::FLOAT and so on
    const Dims& dims() const { return dims_; }
    std::int64_t count() const { return isFloat() ? floatCount() : intCount(); }
    bool isFloat() const;

    const std::vector<float>& floats() const;       // throws OnnxError for integers
    const std::vector<std::int64_t>& ints() const;  // throws OnnxError for floats; booleans are 0 and 1

    // The same values under other dims, or said to be of another type that is kept likewise.
    Array withDims(Dims dims) const;

private:
    std::int64_t floatCount() const { return floats_ ? static_cast<std::int64_t>(floats_->size()) : 0; }
    std::int64_t intCount() const { return ints_ ? static_cast<std::int64_t>(ints_->size()) : 0; }

    int type_ = onnx::TensorProto::FLOAT;
    Dims dims_;
    std::shared_ptr<const std::vector<float>> floats_;
    std::shared_ptr<const std::vector<std::int64_t>> ints_;
};

Array floatArray(Dims dims, std::vector<float> values);  // FLOAT
Array intArray(std::vector<std::int64_t> values);        // INT64, one dimension

bool isFloatType(int type);      // FLOAT, FLOAT16, BFLOAT16, DOUBLE
bool isIntType(int type);        // all integers and BOOL
std::string typeName(int type);  // "float16"; "type 99" for one that is not known

// The product. Throws OnnxError for a negative extent and for a product above 2^40.
std::int64_t elementCount(const Dims& dims);
std::string describeDims(const Dims& dims);  // "[1, 3, 224, 224]"

// A tensor of a file. External data is looked for below folder, where it has to stay. Throws OnnxError, with the
// tensor's name, when the values are not all there.
Array arrayOf(const onnx::TensorProto& tensor, const std::filesystem::path& folder);

// Stores external data in the tensor itself; throws like arrayOf.
void takeExternalData(onnx::TensorProto& tensor, const std::filesystem::path& folder);

}  // namespace convert
