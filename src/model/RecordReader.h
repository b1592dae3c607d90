// Reads the fields that operation records are made of, and resolves the ids of tensors.
//   const std::int16_t in = fields.id(), out = fields.id();
//   fields.store(out, fields.builder().relu(fields.tensor(in)));
// Serves one load: one builder, batch size and version of the format. Fields beyond the end of the data read as 0.
// Reading floats, or a field that contains floats, throws std::bad_array_new_length if their count is negative or above
// 2^31 - 1, and std::bad_alloc.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "model/BinReader.h"
#include "model/Model.h"

// How many samples of a constant its array holds. One is enough for a builder that only looks at a network. It also
// gets null for an array whose floats could not be read.
enum class Samples { one, all };

class RecordReader {
public:
    RecordReader(BinReader& in, int version, int batch, nolk::RunnerBuilder& builder, Model& model,
                 Samples samples = Samples::all)
        : in_(in), version_(version), batch_(batch), builder_(builder), model_(model), samples_(samples) {}

    nolk::RunnerBuilder& builder() { return builder_; }
    bool overflowed() const { return in_.overflowed(); }

    // Bytes that the floats read so far take in the file, compressed or not.
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

    // The arrays of all of these are owned by the builder if it is a FloatKeeper, otherwise by the model.
    nolk::Weights convolutionWeights();
    nolk::Weights fullConnectWeights();
    nolk::LstmWeights lstmWeights();

    // Reads as many floats as the product of the factors. All are zero when the data ends before them or has an unknown
    // form. Missing indices of a codebook give its first value, and zeros if very many are missing.
    float* floats(std::initializer_list<int> factors);

    // One sample, repeated for every sample of the batch.
    nolk::Tensor constant();

private:
    nolk::Weights weightDims();
    float* optionalFloats(std::initializer_list<int> factors);
    bool isForHost() const;
    float* newArray(int count);

    BinReader& in_;
    int version_;
    int batch_;
    nolk::RunnerBuilder& builder_;
    Model& model_;
    Samples samples_;
    std::int64_t floatBytes_ = 0;
    int floatsRead_ = 0;  // by the last call of floats
};
