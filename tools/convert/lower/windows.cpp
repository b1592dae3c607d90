#include "convert/lower/windows.h"

#include <algorithm>

namespace convert {

namespace {

nolk::DimsHW dimsHW(const std::vector<std::int64_t>& values) {
    if (values.size() == 1) return {1, asInt(values[0])};
    return {asInt(values.at(0)), asInt(values.at(1))};
}

// Padding of one axis, before and behind, that makes ceil(extent / stride) windows.
std::pair<int, int> samePadding(int extent, int kernel, int stride, int dilation, bool upper) {
    const int positions = (extent + stride - 1) / stride;
    const int total = std::max((positions - 1) * stride + (kernel - 1) * dilation + 1 - extent, 0);
    const int smaller = total / 2;
    return upper ? std::make_pair(smaller, total - smaller) : std::make_pair(total - smaller, smaller);
}

}  // namespace

int planes(NodeLowering& n, std::size_t input, bool joinsBatch) {
    const Placed x = n.x(input);
    if (x.rank() != 3 && x.rank() != 4)
        n.refuse("input " + describeDims(x.dims()) + " should have one or two spatial dimensions",
                 "use the 1-D or 2-D form");
    if (x.dims()[0] != 1 && !joinsBatch)
        n.refuse("input " + describeDims(x.dims()) + " has a fixed batch of " + std::to_string(x.dims()[0]),
                 "export with a batch of 1, or with a free batch axis");
    Axes channels{1};
    if (joinsBatch) channels = {0, 1};
    if (x.rank() == 3) return arranged(n.program, x, {channels, {}, {2}});
    return arranged(n.program, x, {channels, {2}, {3}});
}

Windows windowsOf(const NodeLowering& n, const std::vector<std::int64_t>& kernel) {
    const std::size_t count = kernel.size();
    const std::vector<std::int64_t> ones(count, 1), zeros(2 * count, 0);
    Windows w;
    w.kernel = dimsHW(kernel);
    const auto strides = n.integerList("strides", ones), dilations = n.integerList("dilations", ones);
    if (strides.size() != count || dilations.size() != count) n.refuse("strides or dilations of another rank");
    w.stride = dimsHW(strides);
    w.dilation = dimsHW(dilations);
    if (std::min({w.stride.h, w.stride.w, w.dilation.h, w.dilation.w, w.kernel.h, w.kernel.w}) < 1)
        n.refuse("kernel, strides and dilations must be positive");
    const std::string automatic = n.text("auto_pad", "NOTSET");
    if (automatic == "VALID") return w;
    if (automatic == "SAME_UPPER" || automatic == "SAME_LOWER") {
        const bool upper = automatic == "SAME_UPPER";
        const Dims& in = n.dims(0);
        const auto columns = samePadding(asInt(in.back()), w.kernel.w, w.stride.w, w.dilation.w, upper);
        w.padding.left = columns.first;
        w.padding.right = columns.second;
        if (count == 2) {
            const auto rows = samePadding(asInt(in[in.size() - 2]), w.kernel.h, w.stride.h, w.dilation.h, upper);
            w.padding.top = rows.first;
            w.padding.bottom = rows.second;
        }
        return w;
    }
    const auto pads = n.integerList("pads", zeros);
    if (pads.size() != 2 * count) n.refuse("pads of another rank");
    if (*std::min_element(pads.begin(), pads.end()) < 0) n.refuse("negative pads", "cut the input by a Slice in front");
    w.padding.left = asInt(pads[count - 1]);
    w.padding.right = asInt(pads[2 * count - 1]);
    if (count == 2) {
        w.padding.top = asInt(pads[0]);
        w.padding.bottom = asInt(pads[2]);
    }
    return w;
}

nolk::Padding beyond(const NodeLowering& n, const Windows& w) {
    const auto more = [&n](std::int64_t in, std::int64_t out, int before, int behind, int kernel, int stride,
                           int dilation) {
        const std::int64_t count = (out - 1) * stride + (kernel - 1) * dilation + 1 - in - before - behind;
        if (count <= -stride)  // nolk has that window
            n.refuse("ceil_mode leaves out a window of padding alone", "use pads that are smaller than the kernel");
        return asInt(std::max<std::int64_t>(count, 0));
    };
    const Dims& in = n.dims(0);
    const Dims& out = n.outDims();
    nolk::Padding padding;
    padding.right = more(in.back(), out.back(), w.padding.left, w.padding.right, w.kernel.w, w.stride.w, w.dilation.w);
    if (in.size() == 4)
        padding.bottom = more(in[2], out[2], w.padding.top, w.padding.bottom, w.kernel.h, w.stride.h, w.dilation.h);
    return padding;
}

}  // namespace convert
