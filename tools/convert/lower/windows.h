// What convolutions and poolings share: kernel, stride, dilation and padding along rows and columns. A tensor with one
// spatial axis has one row.
#pragma once

#include "convert/lower/NodeLowering.h"

namespace convert {

struct Windows {
    nolk::DimsHW kernel{1, 1};
    nolk::DimsHW stride{1, 1};
    nolk::DimsHW dilation{1, 1};
    nolk::Padding padding;
};

// x as [1, c, h, w], with a batch above 1 among the channels if that is allowed.
int planes(NodeLowering& n, std::size_t input, bool joinsBatch);

// From the node's attributes, for input 0 and output 0, whose spatial extents decide automatic and additional padding.
// kernel: the spatial extents of the weights, or of kernel_shape.
Windows windowsOf(const NodeLowering& n, const std::vector<std::int64_t>& kernel);

// Rows and columns that windows reach beyond the padded input, in ceil_mode. Refuses padding behind which a window is
// left out.
nolk::Padding beyond(const NodeLowering& n, const Windows& windows);

}  // namespace convert
