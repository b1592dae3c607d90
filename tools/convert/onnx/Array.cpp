#include "convert/onnx/Array.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <system_error>
#include <utility>

#include "convert/onnx/OnnxError.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

namespace fs = std::filesystem;
using onnx::TensorProto;

constexpr std::int64_t kLargestCount = std::int64_t{1} << 40;

struct Type {
    int number;
    const char* name;
    int bytes;  // of one element in raw data; 0: its values are not read
    bool isFloat;
};
constexpr Type kTypes[] = {
    {TensorProto::FLOAT, "float32", 4, true},
    {TensorProto::UINT8, "uint8", 1, false},
    {TensorProto::INT8, "int8", 1, false},
    {TensorProto::UINT16, "uint16", 2, false},
    {TensorProto::INT16, "int16", 2, false},
    {TensorProto::INT32, "int32", 4, false},
    {TensorProto::INT64, "int64", 8, false},
    {TensorProto::STRING, "string", 0, false},
    {TensorProto::BOOL, "bool", 1, false},
    {TensorProto::FLOAT16, "float16", 2, true},
    {TensorProto::DOUBLE, "float64", 8, true},
    {TensorProto::UINT32, "uint32", 4, false},
    {TensorProto::UINT64, "uint64", 8, false},
    {TensorProto::COMPLEX64, "complex64", 0, false},
    {TensorProto::COMPLEX128, "complex128", 0, false},
    {TensorProto::BFLOAT16, "bfloat16", 2, true},
};

const Type* typeOf(int number) {
    for (const Type& type : kTypes)
        if (type.number == number) return &type;
    return nullptr;
}

float floatOfBits(std::uint32_t bits) {
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

float floatOfHalf(std::uint32_t half) {
    const std::uint32_t sign = (half & 0x8000) << 16, exponent = half >> 10 & 31, fraction = half & 1023;
    if (exponent == 31) return floatOfBits(sign | 0x7f800000 | fraction << 13);
    if (exponent != 0) return floatOfBits(sign | (exponent + 112) << 23 | fraction << 13);
    const float magnitude = static_cast<float>(fraction) * 0x1p-24f;
    return sign != 0 ? -magnitude : magnitude;
}

template <typename Stored>
Stored storedAt(const char* bytes, std::size_t index) {
    Stored value;
    std::memcpy(&value, bytes + index * sizeof value, sizeof value);
    return value;
}

float floatAt(const char* bytes, std::size_t index, int type) {
    switch (type) {
        case TensorProto::FLOAT16:
            return floatOfHalf(storedAt<std::uint16_t>(bytes, index));
        case TensorProto::BFLOAT16:
            return floatOfBits(std::uint32_t{storedAt<std::uint16_t>(bytes, index)} << 16);
        case TensorProto::DOUBLE:
            return static_cast<float>(storedAt<double>(bytes, index));
        default:
            return storedAt<float>(bytes, index);
    }
}

std::int64_t intAt(const char* bytes, std::size_t index, int type) {
    switch (type) {
        case TensorProto::UINT8:
            return storedAt<std::uint8_t>(bytes, index);
        case TensorProto::INT8:
            return storedAt<std::int8_t>(bytes, index);
        case TensorProto::UINT16:
            return storedAt<std::uint16_t>(bytes, index);
        case TensorProto::INT16:
            return storedAt<std::int16_t>(bytes, index);
        case TensorProto::INT32:
            return storedAt<std::int32_t>(bytes, index);
        case TensorProto::UINT32:
            return storedAt<std::uint32_t>(bytes, index);
        case TensorProto::BOOL:
            return storedAt<std::uint8_t>(bytes, index) != 0 ? 1 : 0;
        default:
            return storedAt<std::int64_t>(bytes, index);
    }
}

[[noreturn]] void refuse(const TensorProto& tensor, const std::string& why) {
    throw OnnxError("tensor " + inQuotes(tensor.name()) + ": " + why);
}

Array ofBytes(int type, Dims dims, const char* bytes, std::size_t count) {
    if (isFloatType(type)) {
        std::vector<float> values(count);
        if (type == TensorProto::FLOAT && count != 0)
            std::memcpy(values.data(), bytes, count * sizeof(float));
        else
            for (std::size_t i = 0; i < count; ++i) values[i] = floatAt(bytes, i, type);
        return {type, std::move(dims), std::move(values)};
    }
    std::vector<std::int64_t> values(count);
    for (std::size_t i = 0; i < count; ++i) values[i] = intAt(bytes, i, type);
    return {type, std::move(dims), std::move(values)};
}

std::string numbers(std::size_t have, std::int64_t need) {
    return "has " + std::to_string(have) + " values, its dimensions need " + std::to_string(need);
}

template <typename Result, typename Field, typename Conversion>
std::vector<Result> converted(const TensorProto& tensor, const Field& field, std::int64_t count, Conversion&& one) {
    if (field.size() != count) refuse(tensor, numbers(static_cast<std::size_t>(field.size()), count));
    std::vector<Result> values;
    values.reserve(static_cast<std::size_t>(count));
    for (const auto value : field) values.push_back(one(value));
    return values;
}

Array ofFields(const TensorProto& tensor, Dims dims, std::int64_t count) {
    const int type = tensor.data_type();
    const auto asFloat = [](auto value) { return static_cast<float>(value); };
    const auto asInt = [](auto value) { return static_cast<std::int64_t>(value); };
    switch (type) {
        case TensorProto::FLOAT:
            return {type, std::move(dims), converted<float>(tensor, tensor.float_data(), count, asFloat)};
        case TensorProto::DOUBLE:
            return {type, std::move(dims), converted<float>(tensor, tensor.double_data(), count, asFloat)};
        case TensorProto::FLOAT16:
        case TensorProto::BFLOAT16: {
            const auto one = [&](std::int32_t value) {
                const std::uint32_t bits = static_cast<std::uint32_t>(value) & 0xffff;
                return type == TensorProto::FLOAT16 ? floatOfHalf(bits) : floatOfBits(bits << 16);
            };
            return {type, std::move(dims), converted<float>(tensor, tensor.int32_data(), count, one)};
        }
        case TensorProto::INT64:
            return {type, std::move(dims), converted<std::int64_t>(tensor, tensor.int64_data(), count, asInt)};
        case TensorProto::UINT32:
        case TensorProto::UINT64:
            return {type, std::move(dims), converted<std::int64_t>(tensor, tensor.uint64_data(), count, asInt)};
        case TensorProto::BOOL: {
            const auto one = [](std::int32_t value) { return std::int64_t{value != 0}; };
            return {type, std::move(dims), converted<std::int64_t>(tensor, tensor.int32_data(), count, one)};
        }
        default:
            return {type, std::move(dims), converted<std::int64_t>(tensor, tensor.int32_data(), count, asInt)};
    }
}

struct External {
    std::string location;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    bool hasLength = false;
};

std::uint64_t numberOf(const TensorProto& tensor, const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 18 &&
                          std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!isNumber) refuse(tensor, "external data: " + inQuotes(text) + " is not a number of bytes");
    return std::stoull(text);
}

External externalOf(const TensorProto& tensor) {
    External external;
    for (const auto& entry : tensor.external_data()) {
        if (entry.key() == "location") external.location = entry.value();
        if (entry.key() == "offset") external.offset = numberOf(tensor, entry.value());
        if (entry.key() == "length") {
            external.length = numberOf(tensor, entry.value());
            external.hasLength = true;
        }
    }
    return external;
}

// The file of external data, which a link or ".." may not lead out of the model's folder.
fs::path externalPath(const TensorProto& tensor, const std::string& location, const fs::path& folder) {
    if (location.empty()) refuse(tensor, "external data without a location");
    std::error_code error;
    const fs::path root = fs::weakly_canonical(folder.empty() ? fs::path(".") : folder, error);
    fs::path path = fs::weakly_canonical(root / location, error);
    const bool isInside = !error && !fs::path(location).is_absolute() &&
                          std::mismatch(root.begin(), root.end(), path.begin(), path.end()).first == root.end();
    if (!isInside) refuse(tensor, "external data " + inQuotes(location) + " is not below the model's folder");
    if (!fs::is_regular_file(path, error))
        refuse(tensor, "external data " + inQuotes(location) + " is missing: it belongs beside the model");
    return path;
}

std::string externalBytes(const TensorProto& tensor, std::int64_t count, int elementBytes, const fs::path& folder) {
    const External external = externalOf(tensor);
    const fs::path path = externalPath(tensor, external.location, folder);
    const std::uint64_t need = static_cast<std::uint64_t>(count) * static_cast<std::uint64_t>(elementBytes);
    std::error_code error;
    const std::uint64_t size = fs::file_size(path, error);
    if (error) refuse(tensor, "external data " + inQuotes(external.location) + ": " + error.message());
    if ((external.hasLength && external.length != need) || external.offset > size || size - external.offset < need)
        refuse(tensor, "external data " + inQuotes(external.location) + ": needs " + std::to_string(need) +
                           " bytes from byte " + std::to_string(external.offset) + ", " +
                           (external.hasLength && external.length != need
                                ? "the model gives it " + std::to_string(external.length)
                                : "the file has " + std::to_string(size)));
    std::string bytes(static_cast<std::size_t>(need), '\0');
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(external.offset));
    if (!file.read(bytes.data(), static_cast<std::streamsize>(need)))
        refuse(tensor, "external data " + inQuotes(external.location) + " cannot be read");
    return bytes;
}

// Throws OnnxError for a type that is not read.
const Type& readTypeOf(const TensorProto& tensor) {
    const Type* type = typeOf(tensor.data_type());
    if (type == nullptr || type->bytes == 0)
        refuse(tensor, "values of " + typeName(tensor.data_type()) + " are not read");
    return *type;
}

std::int64_t countOf(const TensorProto& tensor) {
    constexpr int kMostDims = 16;
    if (tensor.dims_size() > kMostDims) refuse(tensor, "has " + std::to_string(tensor.dims_size()) + " dimensions");
    try {
        return elementCount(Dims(tensor.dims().begin(), tensor.dims().end()));
    } catch (const OnnxError& error) {
        refuse(tensor, error.what());
    }
}

}  // namespace

Array::Array(int type, Dims dims, std::vector<float> values)
    : type_(type), dims_(std::move(dims)), floats_(std::make_shared<const std::vector<float>>(std::move(values))) {}

Array::Array(int type, Dims dims, std::vector<std::int64_t> values)
    : type_(type),
      dims_(std::move(dims)),
      ints_(std::make_shared<const std::vector<std::int64_t>>(std::move(values))) {}

bool Array::isFloat() const { return isFloatType(type_); }

const std::vector<float>& Array::floats() const {
    if (!floats_) throw OnnxError("expects floats, got " + typeName(type_));
    return *floats_;
}

const std::vector<std::int64_t>& Array::ints() const {
    if (!ints_) throw OnnxError("expects integers, got " + typeName(type_));
    return *ints_;
}

Array Array::withDims(Dims dims) const {
    if (elementCount(dims) != count())
        throw OnnxError("has " + std::to_string(count()) + " elements, which do not fit " + describeDims(dims));
    Array result = *this;
    result.dims_ = std::move(dims);
    return result;
}

Array floatArray(Dims dims, std::vector<float> values) {
    return {TensorProto::FLOAT, std::move(dims), std::move(values)};
}

Array intArray(std::vector<std::int64_t> values) {
    Dims dims{static_cast<std::int64_t>(values.size())};
    return {TensorProto::INT64, std::move(dims), std::move(values)};
}

bool isFloatType(int type) {
    const Type* row = typeOf(type);
    return row != nullptr && row->isFloat;
}

bool isIntType(int type) {
    const Type* row = typeOf(type);
    return row != nullptr && !row->isFloat && row->bytes != 0;
}

std::string typeName(int type) {
    const Type* row = typeOf(type);
    return row != nullptr ? row->name : "type " + std::to_string(type);
}

std::int64_t elementCount(const Dims& dims) {
    std::int64_t count = 1;
    for (const std::int64_t extent : dims) {
        if (extent < 0 || (extent != 0 && count > kLargestCount / extent))
            throw OnnxError("impossible dimensions " + describeDims(dims));
        count *= extent;
    }
    return count;
}

std::string describeDims(const Dims& dims) {
    std::string text = "[";
    for (std::size_t i = 0; i < dims.size(); ++i) text += (i == 0 ? "" : ", ") + std::to_string(dims[i]);
    return text + "]";
}

Array arrayOf(const TensorProto& tensor, const fs::path& folder) {
    const Type& type = readTypeOf(tensor);
    const std::int64_t count = countOf(tensor);
    Dims dims(tensor.dims().begin(), tensor.dims().end());
    if (tensor.data_location() == TensorProto::EXTERNAL) {
        const std::string bytes = externalBytes(tensor, count, type.bytes, folder);
        return ofBytes(tensor.data_type(), std::move(dims), bytes.data(), static_cast<std::size_t>(count));
    }
    if (!tensor.has_raw_data()) return ofFields(tensor, std::move(dims), count);
    const std::size_t have = tensor.raw_data().size();
    if (have != static_cast<std::size_t>(count) * static_cast<std::size_t>(type.bytes))
        refuse(tensor,
               "has " + std::to_string(have) + " bytes, its dimensions need " + std::to_string(count * type.bytes));
    return ofBytes(tensor.data_type(), std::move(dims), tensor.raw_data().data(), static_cast<std::size_t>(count));
}

void takeExternalData(TensorProto& tensor, const fs::path& folder) {
    if (tensor.data_location() != TensorProto::EXTERNAL) return;
    const Type& type = readTypeOf(tensor);
    tensor.set_raw_data(externalBytes(tensor, countOf(tensor), type.bytes, folder));
    tensor.clear_external_data();
    tensor.clear_data_location();
}

}  // namespace convert
