// A convolution of any shape: copies the windows of some output pixels to scratch memory, with zeros outside the input,
// and multiplies them.
//   in [n, c, h, w] plain, out [n, groups * out, oh, ow] in blocks, or plain with a single channel
// The sums are those of FastConvolutionLayer.
#pragma once

#include "fast/layers/FastProductParts.h"
#include "fast/layers/FastSteps.h"

class FastGatheredConvolutionLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats(op, output, numThreads).
    FastGatheredConvolutionLayer(const FastNode& node, const FastConvolution& op, const FastView& input,
                                 const FastView& output, const std::vector<FastView>& views, std::ptrdiff_t scratch,
                                 int numThreads);

    static std::int64_t scratchFloats(const FastConvolution& op, const nolk::TensorShape& output, int numThreads);

    void run(const FastRun& run) const override;

private:
    static int buffers(const FastConvolution& op, const nolk::TensorShape& output, int numThreads);
    static int tilePixels(const FastConvolution& op, const nolk::TensorShape& output);
    void gather(const float* sample, int group, int row, int column, float* window) const;
    void compute(const FastRun& run, int sample, int group, int row, float* windows) const;

    FastView input_, output_;
    nolk::Padding padding_;
    nolk::DimsHW stride_, dilation_, kernel_;
    int inChannels_;
    int groups_;  // one if windows are empty
    FastProductParts parts_;
    FastEpilogue epilogue_;
    std::ptrdiff_t scratch_;
    int tile_, threads_;
};
