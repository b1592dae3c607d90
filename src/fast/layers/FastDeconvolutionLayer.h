// A transposed convolution. Output rows and columns with the same remainder by the stride form a phase; each phase is a
// convolution with a part of the kernel.
//   in [n, i, h, w] in blocks with a border, weights [i, o, kh, kw], out [n, o, oh, ow] in blocks, or plain with a
//   single channel
// Every output is one chain of fused multiply-adds: bias, then input channels, kernel rows, kernel columns. Then the
// steps of the node.
#pragma once

#include "fast/layers/FastProductParts.h"
#include "fast/layers/FastSteps.h"

class FastDeconvolutionLayer final : public FastLayer {
public:
    FastDeconvolutionLayer(const FastNode& node, const FastDeconvolution& op, const FastView& input,
                           const FastView& output, const std::vector<FastView>& views);

    void run(const FastRun& run) const override;

private:
    // The part of a phase along one dimension: the output positions first, first + stride, ... and the kernel indices
    // that they use; index kernel[j] reads source - j for the first position.
    struct Phase {
        int first = 0, positions = 0, source = 0;
        std::vector<int> kernel;
        std::size_t number = 0;  // among the phases that use any
    };
    static std::vector<Phase> phasesOf(int out, int kernel, int stride, int before);
    static std::size_t usingKernel(const std::vector<Phase>& phases);

    FastProductParts pack(const FastDeconvolution& op, const Phase& rows, const Phase& columns) const;
    const FastProductParts& partsOf(const Phase& rows, const Phase& columns) const;
    void compute(const FastRun& run, int sample, std::size_t phase, int firstBlock, int blocks, int begin,
                 int end) const;

    FastView input_, output_;
    nolk::DimsHW stride_;
    std::vector<Phase> rows_, columns_;
    std::vector<FastProductParts> parts_;  // of all pairs of phases that use the kernel
    std::size_t columnPhases_;             // that use the kernel
    FastProductParts bias_;                // of all other pairs; a large stride leaves many
    FastEpilogue epilogue_;
};
