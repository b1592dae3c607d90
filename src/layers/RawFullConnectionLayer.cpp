#include "layers/RawFullConnectionLayer.h"

#include <algorithm>

#include "builder/shapes.h"
#include "layers/ownedFloats.h"
#include "layers/weights.h"
#include "math/blas.h"
#include "math/quotient.h"

RawFullConnectionLayer::RawFullConnectionLayer(nolk::Tensor input, nolk::Tensor output, const nolk::Weights& weights,
                                               FloatArrays* given)
    : input_(input),
      output_(output),
      groups_(weights.groups),
      // The counts have not been checked if the output is empty.
      weight_(ownedFloats(weights.weight, elementCount(output.shape) > 0 ? weightCount(weights) : 0, given)),
      bias_(ownedFloats(weights.bias, elementCount(output.shape) > 0 ? biasCount(weights) : 0, given)) {
    desc = "fc";
}

void RawFullConnectionLayer::run(AlignedMemory<float>&) {
    if (elementCount(output_.shape) == 0) return;
    const int rows = groups_ * input_.shape.n;
    const int inputs = std::max(quotient(input_.shape.c, groups_), 0);
    const int outputs = quotient(output_.shape.c, groups_);
    gemmMajRowColRow(input_.data, weight_.get(), output_.data, rows, inputs, outputs, 1, 0);
    if (!bias_) return;
    for (std::ptrdiff_t row = 0; row < rows; ++row) vectorAdd(outputs, output_.data + row * outputs, bias_.get());
}
