// Layers that work on planes: poolings, reductions of whole planes, instance normalisation, resizing. The threads
// divide the planes. The kernels in kernels/planes.h compute 16 channels at a time and say in which order sums are
// formed; an instance normalisation of plain planes uses those in kernels/rows.h.
#pragma once

#include "fast/layers/FastPackedWeights.h"
#include "fast/layers/FastSteps.h"

// Maximum or average of windows.
//   in [n, c, h, w], out [n, c, oh, ow], both in blocks
class FastPoolingLayer final : public FastLayer {
public:
    FastPoolingLayer(const FastNode& node, const FastPooling& op, const FastView& input, const FastView& output,
                     const std::vector<FastView>& views)
        : input_(input), output_(output), op_(op), steps_(node.steps, views, output) {}

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    FastPooling op_;
    FastSteps steps_;
};

// One value for each plane.
//   in [n, c, h, w], out [n, c, 1, 1], both in blocks
class FastPlaneReductionLayer final : public FastLayer {
public:
    FastPlaneReductionLayer(nolk::BasicOp op, const FastView& input, const FastView& output)
        : op_(op), input_(input), output_(output) {}

    void run(const FastRun& run) const override;

private:
    nolk::BasicOp op_;
    FastView input_, output_;
};

// y = (x - mean) * scale[c] / sqrt(variance + epsilon) + bias[c], with mean and variance of each plane.
//   in, out [n, c, h, w] in the same layout
class FastInstanceNormalizationLayer final : public FastLayer {
public:
    FastInstanceNormalizationLayer(const FastNode& node, const FastInstanceNorm& op, const FastView& input,
                                   const FastView& output, const std::vector<FastView>& views)
        : input_(input), output_(output), op_(op), steps_(node.steps, views, output) {}

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    FastInstanceNorm op_;
    FastSteps steps_;
};

// Linear interpolation or the nearest pixel.
//   in [n, c, h, w], out [n, c, oh, ow], both in blocks
class FastResizeLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats(output).
    FastResizeLayer(const FastNode& node, const FastResize& op, const FastView& input, const FastView& output,
                    const std::vector<FastView>& views, std::ptrdiff_t scratch);

    void run(const FastRun& run) const override;

    static std::int64_t scratchFloats(const nolk::TensorShape& output);

private:
    // For each output index: the two source indices, and the weight of the second. If there is a single source, the
    // first index is -1 and has weight 0. A run computes them in scratch memory: kept by the layer, the tables of many
    // layers would take more memory than their tensors, which share theirs.
    struct Axis {
        const int* first = nullptr;
        const int* second = nullptr;
        const float* weight = nullptr;  // null for nearest
    };
    static nolk::ResizeMode modeOf(const FastResize& op, const nolk::TensorShape& in);
    Axis axisIn(float* scratch, int in, int out) const;

    FastView input_, output_;
    nolk::ResizeMode mode_;
    nolk::ResizeTransMode transMode_;
    std::ptrdiff_t scratch_;
    FastSteps steps_;
};
