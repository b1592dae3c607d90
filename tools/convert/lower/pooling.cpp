// Poolings over windows and over whole planes.
#include <algorithm>

#include "convert/lower/operators.h"
#include "convert/lower/windows.h"

namespace convert {

namespace {

std::vector<std::int64_t> kernelShape(const NodeLowering& n) {
    const auto kernel = n.integerList("kernel_shape");
    if (kernel.size() + 2 != n.dims(0).size()) n.refuse("kernel_shape of another rank than the input");
    return kernel;
}

nolk::Padding sum(nolk::Padding a, nolk::Padding b) {
    return {a.top + b.top, a.bottom + b.bottom, a.left + b.left, a.right + b.right};
}

// The maximum over a dilated window, tap by tap.
int maximumOfTaps(NodeLowering& n, int x, const Windows& windows) {
    const nolk::Padding all = sum(windows.padding, beyond(n, windows));
    if (all.top != 0 || all.bottom != 0 || all.left != 0 || all.right != 0)
        n.refuse("dilations together with padding", "replace by a MaxPool without dilations or without padding");
    const Dims& out = n.outDims();
    const int h = out.size() == 4 ? asInt(out[2]) : 1, w = asInt(out.back());
    int result = -1;
    for (int y = 0; y < windows.kernel.h; ++y)
        for (int column = 0; column < windows.kernel.w; ++column) {
            const int rows = n.program.slice(x, nolk::Axis::h, y * windows.dilation.h, h, windows.stride.h);
            const int tap = n.program.slice(rows, nolk::Axis::w, column * windows.dilation.w, w, windows.stride.w);
            result = result < 0 ? tap : n.program.max(result, tap);
        }
    return result;
}

void lowerGlobal(NodeLowering& n, nolk::BasicOp operation) {
    const int x = planes(n, 0, true);
    n.result(placed(n.program.reduce(x, {1, n.program.shapeOf(x).c, 1, 1, 3}, operation), n.outDims()));
}

}  // namespace

void lowerMaxPool(NodeLowering& n) {
    if (n.wants(1))
        n.refuse("the output Indices is used", "replace MaxUnpool by an interpolation or a transposed convolution");
    const Windows windows = windowsOf(n, kernelShape(n));
    const int x = planes(n, 0, true);
    const bool isDilated = windows.dilation.h > 1 || windows.dilation.w > 1;
    n.result(placed(
        isDilated ? maximumOfTaps(n, x, windows)
                  : n.program.maxPool(x, windows.kernel, sum(windows.padding, beyond(n, windows)), windows.stride),
        n.outDims()));
}

// nolk divides by the number of elements in a window, without the padding's. With count_include_pad the padding's zeros
// are made elements first; what ceil_mode adds beyond them is never counted.
void lowerAveragePool(NodeLowering& n) {
    Windows windows = windowsOf(n, kernelShape(n));
    if (windows.dilation.h > 1 || windows.dilation.w > 1)
        n.refuse("dilations", "replace by a Conv with a constant kernel");
    int x = planes(n, 0, true);
    const nolk::Padding more = beyond(n, windows);
    if (n.integer("count_include_pad", 0) != 0) {
        x = n.program.pad(x, windows.padding);
        windows.padding = {};
    }
    n.result(placed(n.program.avgPool(x, windows.kernel, sum(windows.padding, more), windows.stride), n.outDims()));
}

void lowerGlobalAveragePool(NodeLowering& n) { lowerGlobal(n, nolk::BasicOp::mean); }

void lowerGlobalMaxPool(NodeLowering& n) { lowerGlobal(n, nolk::BasicOp::maximum); }

}  // namespace convert
