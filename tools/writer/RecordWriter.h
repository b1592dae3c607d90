// Writes one operation record: its op code, then its fields in the order of the calls.
//   RecordWriter record(options, OpCode::leakyRelu, "leakyRelu");  record.id(0);  record.id(1);  record.f32(0.1f);
// A value that does not fit its field throws std::out_of_range with the operation's and the field's name; an array that
// should be there and is null throws std::invalid_argument.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "writer/ModelFileOptions.h"
#include "writer/OpCode.h"

class RecordWriter {
public:
    RecordWriter(const ModelFileOptions& options, OpCode opCode, const char* operation);

    const std::vector<unsigned char>& bytes() const { return bytes_; }
    const char* operation() const { return operation_; }

    void i16(std::int64_t value, const std::string& field);
    void i32(std::int64_t value, const std::string& field);
    void u8(std::int64_t value, const std::string& field);
    void f32(float value);
    void dim(std::int64_t value, const std::string& field);
    void id(int id) { i16(id, "tensor id"); }

    template <typename Enum>
    void enum8(Enum value, const char* field) {
        u8(static_cast<int>(value), field);
    }

    void padding(nolk::Padding padding);
    void dimsHW(nolk::DimsHW dims, const std::string& field);
    void perm(nolk::Perm perm);
    void slicePos(nolk::SlicePos pos);
    void shape(nolk::TensorShape shape);
    void vector(nolk::Vector vector, const std::string& field);
    void convolutionWeights(const nolk::Weights& weights);
    void fullConnectWeights(const nolk::Weights& weights);
    void lstmWeights(const nolk::LstmWeights& weights);

    // As many floats as the factors' product, plain or compressed.
    void floats(const float* values, std::initializer_list<int> factors, const std::string& field);

    [[noreturn]] void refuse(const std::string& why) const;

private:
    void integer(std::int64_t value, int bytes, std::int64_t low, std::int64_t high, const std::string& field);
    void weightDims(const nolk::Weights& weights);
    void optionalFloats(const float* values, std::initializer_list<int> factors, const std::string& field);
    void groups(const nolk::Weights& weights, const float* values, std::initializer_list<int> factorsOfOne,
                const std::string& field);
    int floatCount(std::initializer_list<int> factors, const std::string& field) const;
    void plainFloats(const float* values, std::size_t count);

    const ModelFileOptions& options_;
    const char* operation_;
    std::vector<unsigned char> bytes_;
};
