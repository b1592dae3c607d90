// A convolution that reads its windows where they lie: in blocks, or in a plain tensor of few channels.
//   in [n, groups * inChannels, h, w] with a border, weights [group, out, in, kh, kw], out [n, groups * out, oh, ow] in
//   blocks, or plain with a single channel
// With factors of the input channels [n, c, 1, 1] in blocks, a sample's weights are multiplied by its factors first.
// Every output is one chain of fused multiply-adds: bias, then input channels, kernel rows, kernel columns. Kernel rows
// above and below the input are left out; columns beside it count as zeros. Then the steps of the node.
#pragma once

#include "fast/layers/FastProductParts.h"
#include "fast/layers/FastSteps.h"

class FastConvolutionLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats(op), if the convolution has factors.
    FastConvolutionLayer(const FastNode& node, const FastConvolution& op, const FastView& input, const FastView& output,
                         const std::vector<FastView>& views, std::ptrdiff_t scratch);

    // For the weights of one sample, multiplied by its factors.
    static std::int64_t scratchFloats(const FastConvolution& op);

    void run(const FastRun& run) const override;

private:
    // What one task computes. With joined rows, a plane is one long row, and the range is of its pixels.
    struct Piece {
        int sample, firstBlock, lastBlock, begin, end;
    };

    // Tasks compute so many rows or pixels of so many blocks.
    struct Division {
        int pieceLength, blocks;
    };

    Division divide(int samples, int threads) const;
    void runSamples(const FastRun& run, int firstSample, int samples) const;
    void scaleWeights(const FastRun& run, int sample) const;
    void compute(const FastRun& run, const Piece& piece) const;
    void finish(const FastRun& run, const Piece& piece) const;

    FastView input_, output_;
    bool hasFactors_;
    FastView factors_;
    std::ptrdiff_t scratch_;
    nolk::DimsHW stride_;
    std::ptrdiff_t window_;  // from the first pixel of the input to the first window
    FastProductParts parts_;
    std::int64_t weights_;  // that all outputs read
    FastKernelRows kernelRows_;
    FastEpilogue epilogue_;
    bool joinsRows_;
    int pieceLength_;  // the most rows or pixels of a task
};
