// Windows that slide over rows and columns: what convolutions and poolings have in common.
//   const Window window = windowOf(call, kernelDims);       // reads auto_pad, pads, strides, dilations
//   const std::int64_t rows = positions(window.h, input.h, false);
// Tensors of one spatial dimension, [n, c, w], are treated as [n, c, 1, w].
#pragma once

#include "convert/evaluate/Call.h"

namespace convert {

struct Window {
    struct Side {
        std::int64_t kernel = 1, stride = 1, dilation = 1, begin = 0, end = 0;  // begin, end: padding
        std::int64_t extent() const { return (kernel - 1) * dilation + 1; }
    };
    Side h, w;
};

// A tensor [n, c, h, w], or [n, c, w] with h = 1. Others are refused as not known.
struct Planes {
    std::int64_t n = 0, c = 0, h = 0, w = 0;
};
Planes planesOf(const Dims& dims);

// The dims [n, c, h, w] without h where the operator's own tensors have but one spatial dimension.
Dims dimsOf(const Planes& planes, std::size_t rank);

// Throws for attributes that are not possible. Padding that auto_pad asks for is computed for the input's extents.
Window windowOf(const Call& call, const Dims& kernel, const Planes& input);

// Positions of a window along an extent: floor or, with ceil_mode, ceil; windows that would begin behind the input are
// left out.
std::int64_t positions(const Window::Side& side, std::int64_t extent, bool ceilMode);

}  // namespace convert
