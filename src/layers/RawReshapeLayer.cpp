#include "layers/RawReshapeLayer.h"

namespace {

nolk::Tensor channelLast(const nolk::TensorShape& in, float* data) { return {{in.n, in.h, in.w, in.c, 3}, data}; }

}  // namespace

RawReshapeLayer::RawReshapeLayer(nolk::Tensor input, nolk::Tensor output, nolk::TensorLayout layout)
    : input_(input),
      output_(output),
      layout_(layout),
      transpose_(input, channelLast(input.shape, output.data), {{0, 2, 3, 1}}) {
    desc = "reshape";
    transpose_.setDesc("transpose in reshape");
}

void RawReshapeLayer::run(AlignedMemory<float>& scratch) {
    // With nchw the output normally shares the input's storage. If it cannot, nothing is copied all the same; nolk.h
    // tells hosts not to record such a reshape.
    if (layout_ == nolk::TensorLayout::nhwc) transpose_.run(scratch);
}
