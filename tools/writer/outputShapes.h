// Shapes of operations' results, where they are not their input's: the arithmetic that nolk.h states.
#pragma once

#include <nolk.h>

#include <vector>

namespace outputShape {

nolk::TensorShape convolved(nolk::TensorShape x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                            const nolk::Weights& weights);
nolk::TensorShape deConvolved(nolk::TensorShape x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                              const nolk::Weights& weights);
nolk::TensorShape padded(nolk::TensorShape x, nolk::Padding padding);
nolk::TensorShape pooled(nolk::TensorShape x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride);
nolk::TensorShape fullyConnected(nolk::TensorShape x, const nolk::Weights& weights);
nolk::TensorShape lstmOutput(nolk::TensorShape x, const nolk::LstmWeights& weights);
nolk::TensorShape matMultiplied(nolk::TensorShape a, nolk::TensorShape b);

// The axes below must be 0 to 3, and shapes not empty.
nolk::TensorShape transposed(nolk::TensorShape x, nolk::Perm perm);
nolk::TensorShape sliced(nolk::TensorShape x, int axis, nolk::SlicePos pos);
nolk::TensorShape concatenated(const std::vector<nolk::TensorShape>& shapes, int axis);

}  // namespace outputShape
