#include "convert/evaluate/window.h"
#include "convert/onnx/text.h"

#include <algorithm>

namespace convert {

namespace {

// One value for h and w each, of an attribute that has one for each spatial dimension.
void setSides(const std::optional<std::vector<std::int64_t>>& values, std::size_t spatial, const char* name,
              std::int64_t smallest, std::int64_t& h, std::int64_t& w) {
    if (!values || values->empty()) return;
    constexpr std::int64_t kLargest = 1 << 24;
    need(values->size() == spatial, std::string(name) + " has " + std::to_string(values->size()) + " values",
         kAgainstOnnx);
    for (const std::int64_t value : *values)
        need(value >= smallest && value <= kLargest,
             std::string(name) + " " + std::to_string(value) + " is not possible",
             smallest == 0 && value < 0 ? "cut the input by a Slice in front instead" : kAgainstOnnx);
    h = spatial == 2 ? values->front() : h;
    w = values->back();
}

void setPads(const std::optional<std::vector<std::int64_t>>& pads, std::size_t spatial, Window& window) {
    if (!pads || pads->empty()) return;
    need(pads->size() == 2 * spatial, "pads has " + std::to_string(pads->size()) + " values", kAgainstOnnx);
    setSides(std::vector<std::int64_t>(pads->begin(), pads->begin() + static_cast<std::ptrdiff_t>(spatial)), spatial,
             "pads", 0, window.h.begin, window.w.begin);
    setSides(std::vector<std::int64_t>(pads->begin() + static_cast<std::ptrdiff_t>(spatial), pads->end()), spatial,
             "pads", 0, window.h.end, window.w.end);
}

// The padding that makes ceil(extent / stride) positions.
void padToSame(Window::Side& side, std::int64_t extent, bool moreAtEnd) {
    const std::int64_t count = (extent + side.stride - 1) / side.stride;
    const std::int64_t total = std::max<std::int64_t>((count - 1) * side.stride + side.extent() - extent, 0);
    side.begin = moreAtEnd ? total / 2 : total - total / 2;
    side.end = total - side.begin;
}

}  // namespace

Planes planesOf(const Dims& dims) {
    if (dims.size() == 3) return {dims[0], dims[1], 1, dims[2]};
    if (dims.size() == 4) return {dims[0], dims[1], dims[2], dims[3]};
    throw UnknownOperator("input of shape " + describeDims(dims) + ", instead of 3 or 4 dimensions",
                          "use the 1-D or 2-D form");
}

Dims dimsOf(const Planes& planes, std::size_t rank) {
    if (rank == 3) return {planes.n, planes.c, planes.w};
    return {planes.n, planes.c, planes.h, planes.w};
}

Window windowOf(const Call& call, const Dims& kernel, const Planes& input) {
    const std::size_t spatial = static_cast<std::size_t>(call.rank(0)) - 2;
    Window window;
    setSides(kernel, spatial, "kernel_shape", 1, window.h.kernel, window.w.kernel);
    setSides(call.intsAttribute("strides"), spatial, "strides", 1, window.h.stride, window.w.stride);
    setSides(call.intsAttribute("dilations"), spatial, "dilations", 1, window.h.dilation, window.w.dilation);
    const std::string automatic = call.stringAttribute("auto_pad", "NOTSET");
    if (automatic == "NOTSET") {
        setPads(call.intsAttribute("pads"), spatial, window);
    } else if (automatic == "SAME_UPPER" || automatic == "SAME_LOWER") {
        padToSame(window.h, input.h, automatic == "SAME_UPPER");
        padToSame(window.w, input.w, automatic == "SAME_UPPER");
    } else {
        need(automatic == "VALID", "auto_pad " + inQuotes(automatic) + " is not known", kAgainstOnnx);
    }
    return window;
}

std::int64_t positions(const Window::Side& side, std::int64_t extent, bool ceilMode) {
    const std::int64_t room = extent + side.begin + side.end - side.extent();
    need(room >= 0, "the window of " + std::to_string(side.extent()) + " is larger than the padded extent of " +
                        std::to_string(room + side.extent()));
    std::int64_t count = (ceilMode ? room + side.stride - 1 : room) / side.stride + 1;
    if (ceilMode && (count - 1) * side.stride >= extent + side.begin) --count;
    return count;
}

}  // namespace convert
