// Writes one operation record: its op code, then its fields in the order of the calls.
//   RecordWriter record(options, operation);  record.id(0);  record.id(1);  record.field("alpha", 0.1f);
// A value that does not fit its field throws std::out_of_range with the operation's and the field's name; an array that
// should be there and is null throws std::invalid_argument.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "model/Operation.h"

class RecordWriter {
public:
    RecordWriter(const nolk::ModelFileOptions& options, const Operation& operation);

    const std::vector<unsigned char>& bytes() const { return bytes_; }

    void i16(std::int64_t value, const std::string& field);
    void i32(std::int64_t value, const std::string& field);
    void u8(std::int64_t value, const std::string& field);
    void dim(std::int64_t value, const std::string& field);
    void id(int id) { i16(id, "tensor id"); }

    void shape(nolk::TensorShape shape);

    // Writes any argument but a constant, whose shape and floats are written separately.
    void field(const std::string& name, const Argument& value);

    // Writes as many floats as the product of the factors, plain or compressed.
    void floats(const float* values, std::initializer_list<int> factors, const std::string& field);

    [[noreturn]] void refuse(const std::string& why) const;

private:
    template <typename Enum>
    void value(Enum value, const std::string& field);
    void value(float value, const std::string& field);
    void value(nolk::Padding padding, const std::string& field);
    void value(nolk::DimsHW dims, const std::string& field);
    void value(nolk::Perm perm, const std::string& field);
    void value(nolk::SlicePos pos, const std::string& field);
    void value(nolk::TensorShape shape, const std::string& field);
    void value(nolk::Tensor tensor, const std::string& field);
    void value(nolk::Vector vector, const std::string& field);
    void value(const nolk::Weights& weights, const std::string& field);
    void value(const SharedWeights& weights, const std::string& field);
    void value(const nolk::LstmWeights& weights, const std::string& field);
    void integer(std::int64_t value, int bytes, std::int64_t low, std::int64_t high, const std::string& field);
    void weightDims(const nolk::Weights& weights);
    void optionalFloats(const float* values, std::initializer_list<int> factors, const std::string& field);
    void groups(const nolk::Weights& weights, const float* values, std::initializer_list<int> factorsOfOne,
                const std::string& field);
    int floatCount(std::initializer_list<int> factors, const std::string& field) const;
    void plainFloats(const float* values, std::size_t count);

    const nolk::ModelFileOptions* options_;
    const char* operation_;
    std::vector<unsigned char> bytes_;
};
