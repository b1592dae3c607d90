// The samples of a batch: how elements of ONNX tensors and of a converted file's tensors correspond.
//   Samples samples;
//   for (int sample = 0; sample < batch; ++sample) appendSample(place, array, batch, sample, samples);
#pragma once

#include <random>
#include <vector>

#include "convert/check/check.h"

namespace convert {

// Tensors in the file's order of elements, samples one after the other.
using Samples = std::vector<float>;

// Adds the elements of one sample of an ONNX tensor: of one of `batch` equal parts of its batch axis.
void appendSample(const TensorPlace& place, const Array& array, int batch, int sample, Samples& samples);

// One sample of a batch as an ONNX tensor of dims, which have batch 1.
Array sampleAlone(const TensorPlace& place, const Dims& dims, const Array& array, int batch, int sample);

// Random values, floats of a normal distribution or integers from 0 to 127, for a batch of samples of dims.
Array randomArray(const TensorPlace& place, const Dims& dims, int batch, int type, std::mt19937& random);

// The first samples of what a user brings, as values of the type; with fewer than the batch they begin anew. Throws
// OnnxError for a shape that is not that of the input.
Array usersArray(const TensorPlace& place, const Dims& dims, const Array& given, int batch, int type);

}  // namespace convert
