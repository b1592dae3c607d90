#include "layers/RawTransposeLayer.h"

#include <algorithm>

#include "math/transpose.h"

RawTransposeLayer::RawTransposeLayer(nolk::Tensor input, nolk::Tensor output, nolk::Perm perm)
    : input_(input),
      output_(output),
      perm_(perm),
      extents_{input.shape.n, input.shape.c, input.shape.h, input.shape.w} {
    const nolk::TensorShape& out = output.shape;
    const std::ptrdiff_t row = out.w, plane = row * out.h, sample = plane * out.c;
    const std::ptrdiff_t outStrides[] = {sample, plane, row, 1};
    for (int i = 0; i < 4; ++i) strides_[perm.axes[i]] += outStrides[i];
    // An empty tensor may have extents whose product is beyond an int.
    if (std::min({extents_[0], extents_[1], extents_[2], extents_[3]}) < 1) return;
    if (strides_[2] == strides_[3] * extents_[3]) {
        extents_[3] *= extents_[2];
        extents_[2] = 1;
    }
}

void RawTransposeLayer::run(AlignedMemory<float>&) {
    if (std::min({extents_[0], extents_[1], extents_[2], extents_[3]}) < 1) return;
    bool used[4] = {};
    for (const int axis : perm_.axes) used[axis] = true;
    const bool isPermutation = used[0] && used[1] && used[2] && used[3];
    if (isPermutation && strides_[3] != 1)
        transposePlanes(perm_.axes[3]);
    else
        moveInOrder();
}

void RawTransposeLayer::moveInOrder() const {
    const float* in = input_.data;
    for (int n = 0; n < extents_[0]; ++n)
        for (int c = 0; c < extents_[1]; ++c)
            for (int h = 0; h < extents_[2]; ++h) {
                float* out = output_.data + n * strides_[0] + c * strides_[1] + h * strides_[2];
                if (strides_[3] == 1)
                    std::copy_n(in, extents_[3], out);
                else
                    for (int w = 0; w < extents_[3]; ++w) out[w * strides_[3]] = in[w];
                in += extents_[3];
            }
}

// The output's rows run along `axis` of the input, the input's rows along w. So there is one matrix to transpose for
// every pair of indices of the other two axes.
void RawTransposeLayer::transposePlanes(int axis) const {
    const std::ptrdiff_t row = extents_[3], plane = row * extents_[2], sample = plane * extents_[1];
    const std::ptrdiff_t inStrides[] = {sample, plane, row};
    const int outer = axis == 0 ? 1 : 0;
    const int inner = axis == 2 ? 1 : 2;
    for (int i = 0; i < extents_[outer]; ++i)
        for (int j = 0; j < extents_[inner]; ++j)
            transposeMatrix(input_.data + i * inStrides[outer] + j * inStrides[inner], inStrides[axis],
                            output_.data + i * strides_[outer] + j * strides_[inner], strides_[3], extents_[axis],
                            extents_[3]);
}
