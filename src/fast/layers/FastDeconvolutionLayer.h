// A transposed convolution. Output rows and columns with the same remainder by the stride form a phase; each phase is a
// convolution with a part of the kernel.
//   in [n, i, h, w] in blocks with a border, weights [i, o, kh, kw], out [n, o, oh, ow] in blocks, or plain with a
//   single channel
// If windows do not overlap and there are few output channels, the phases of an input pixel share a block: they read
// the same inputs. Every output is one chain of fused multiply-adds: bias, then input channels, kernel rows, kernel
// columns. Then the steps of the node.
#pragma once

#include "fast/layers/FastProductParts.h"
#include "fast/layers/FastSteps.h"

class FastDeconvolutionLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats(op, input, output).
    FastDeconvolutionLayer(const FastNode& node, const FastDeconvolution& op, const FastView& input,
                           const FastView& output, const std::vector<FastView>& views, std::ptrdiff_t scratch);

    static std::int64_t scratchFloats(const FastDeconvolution& op, const nolk::TensorShape& input,
                                      const nolk::TensorShape& output);

    void run(const FastRun& run) const override;

private:
    // The part of a phase along one dimension: the output positions first, first + stride, ... and the kernel indices
    // that they use; index kernel[j] reads source - j for the first position.
    struct Phase {
        int first = 0, positions = 0, source = 0;
        std::vector<int> kernel;
    };
    static std::vector<Phase> phasesOf(int out, int kernel, int stride, int before);

    static bool joinsPhases(const FastDeconvolution& op, const nolk::TensorShape& input,
                            const nolk::TensorShape& output);
    void packPhases(const FastDeconvolution& op);
    FastProductParts packJoined(const FastDeconvolution& op) const;
    void computeJoined(const FastRun& run, int sample, int sourceRow) const;
    void finish(const FastRun& run, int sample, int block, int begin, int end) const;
    FastProductParts pack(const FastDeconvolution& op, const Phase& rows, const Phase& columns) const;
    void compute(const FastRun& run, int sample, std::size_t phase, int firstBlock, int blocks, int begin,
                 int end) const;

    FastView input_, output_;
    nolk::DimsHW stride_;
    std::vector<Phase> rows_, columns_;
    std::vector<std::size_t> partsOfPhase_;  // index in parts_, of row phase i and column phase j at i * columns + j
    std::vector<FastProductParts> parts_;
    FastEpilogue epilogue_;
    bool joinsPhases_;
    std::ptrdiff_t scratch_;
};
