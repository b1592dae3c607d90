// A convolution with a kernel for each channel.
//   in [n, c, h, w] in blocks with a border, weights [c, kh, kw], out [n, c, oh, ow] in blocks
// Every output is one chain of fused multiply-adds: bias, then kernel rows, kernel columns. Then the steps of the node.
#pragma once

#include "fast/layers/FastPackedWeights.h"
#include "fast/layers/FastSteps.h"

class FastDepthwiseLayer final : public FastLayer {
public:
    FastDepthwiseLayer(const FastNode& node, const FastConvolution& op, const FastView& input, const FastView& output,
                       const std::vector<FastView>& views);

    void run(const FastRun& run) const override;

private:
    void compute(const FastRun& run, int sample, int block, int firstRow, int rows) const;

    FastView input_, output_;
    nolk::DimsHW kernel_, stride_, dilation_;
    std::ptrdiff_t window_;
    FastPacked weights_;  // [block, kh, kw, 16]
    FastPacked bias_;     // [block, 16]
    FastEpilogue epilogue_;
};
