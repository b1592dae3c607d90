// Layers that work on plain tensors along some axes: softmax, reductions, L2 normalisation. They see a tensor as
// [outer, extent, inner] and compute outer * inner results independently; the threads divide the outer dimension. The
// kernels in kernels/rows.h do the arithmetic and say in which order sums are formed.
#pragma once

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"

// A shape seen as [outer, extent, inner], where `extent` stands for the axes from first to last (1 = c, 2 = h, 3 = w).
struct FastExtents {
    int outer, extent, inner;
    FastExtents(const nolk::TensorShape& shape, int first, int last);
};

// y = exp(x - m) / sum of exp(x - m) along one axis, where m is the maximum along it.
//   in, out [n, c, h, w] plain
class FastSoftmaxLayer final : public FastLayer {
public:
    FastSoftmaxLayer(int axis, const FastView& input, const FastView& output)
        : input_(input), output_(output), extents_(input.shape, axis, axis) {}

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    FastExtents extents_;
};

// Maximum, mean, sum or minimum along neighbouring axes, which have extent 1 in the output.
//   in [n, c, h, w], out as in, with some extents 1; both plain
class FastReductionLayer final : public FastLayer {
public:
    FastReductionLayer(nolk::BasicOp op, const FastView& input, const FastView& output);

    void run(const FastRun& run) const override;

private:
    nolk::BasicOp op_;
    FastView input_, output_;
    FastExtents extents_;
};

// y = x / sqrt(sum over c of x^2), for every sample, row and column.
//   in, out [n, c, h, w] plain
class FastL2NormalizationLayer final : public FastLayer {
public:
    FastL2NormalizationLayer(const FastView& input, const FastView& output)
        : input_(input), output_(output), extents_(input.shape, 1, 1) {}

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    FastExtents extents_;
};
