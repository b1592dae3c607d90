// Reads the fields that operation records are made of, and resolves the ids of tensors.
//   const std::int16_t in = fields.id(), out = fields.id();
//   fields.store(out, fields.builder().relu(fields.tensor(in)));
// For one load: a builder, a batch size and a version of the format. What does not fit the data reads as 0. Floats and
// what holds them throw std::bad_array_new_length for a count that is negative or above 2^31 - 1, and std::bad_alloc.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "model/BinReader.h"
#include "model/Model.h"

class RecordReader {
public:
    RecordReader(BinReader& in, int version, int batch, nolk::RunnerBuilder& builder, Model& model)
        : in_(in), version_(version), batch_(batch), builder_(builder), model_(model) {}

    nolk::RunnerBuilder& builder() { return builder_; }
    bool overflowed() const { return in_.overflowed(); }

    // Bytes that the floats read so far take in the file, in whatever form.
    std::int64_t floatBytes() const { return floatBytes_; }

    std::int16_t id() { return in_.readShort(); }
    nolk::TensorX* tensor(std::int16_t id) { return model_.tensors[id]; }
    void store(std::int16_t id, nolk::TensorX* tensor) { model_.tensors[id] = tensor; }
    void addOutput(nolk::TensorX* tensor) { model_.outputs.push_back(tensor); }

    int i16() { return in_.readShort(); }
    int i32() { return in_.readInt(); }
    int u8() { return in_.readByte(); }
    float f32() { return in_.readFloat(); }
    int dim() { return version_ == 1 ? i16() : i32(); }

    template <typename Enum>
    Enum enum8() {
        return static_cast<Enum>(u8());
    }

    nolk::Padding padding() { return {u8(), u8(), u8(), u8()}; }
    nolk::DimsHW dimsHW() { return {i16(), i16()}; }
    nolk::Perm perm() { return {{i16(), i16(), i16(), i16()}}; }
    nolk::SlicePos slicePos() { return {i16(), i16(), i16(), i16()}; }
    nolk::TensorShape shape();
    nolk::Vector vector();

    // The model owns the arrays of all of these, or a builder that is a FloatKeeper.
    nolk::Weights convolutionWeights();
    nolk::Weights fullConnectWeights();
    nolk::LstmWeights lstmWeights();

    // As many floats as the factors' product; zeros where the data ends before them, or comes in an unknown form. Of a
    // codebook whose indices end too soon, the first value stands in, then zeros where very many are missing.
    float* floats(std::initializer_list<int> factors);

    // One sample, repeated for every sample of the batch.
    nolk::Tensor constant();

private:
    nolk::Weights weightDims();
    float* optionalFloats(std::initializer_list<int> factors);
    float* newArray(int count);

    BinReader& in_;
    int version_;
    int batch_;
    nolk::RunnerBuilder& builder_;
    Model& model_;
    std::int64_t floatBytes_ = 0;
    int floatsRead_ = 0;  // by the last call of floats
};
