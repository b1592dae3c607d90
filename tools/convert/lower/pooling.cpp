// Poolings over windows and over whole planes.
#include <algorithm>
#include <limits>

#include "convert/lower/operators.h"
#include "convert/lower/windows.h"

namespace convert {

namespace {

std::vector<std::int64_t> kernelShape(const NodeLowering& n) {
    auto kernel = n.integerList("kernel_shape");
    if (kernel.size() + 2 != n.dims(0).size()) n.refuse("kernel_shape of another rank than the input");
    return kernel;
}

nolk::Padding sum(nolk::Padding a, nolk::Padding b) {
    return {a.top + b.top, a.bottom + b.bottom, a.left + b.left, a.right + b.right};
}

// x with values below all others around every plane.
int withLowest(Program& program, int x, nolk::Padding padding) {
    const auto rows = [&](int count, int width) {
        const nolk::TensorShape shape = program.shapeOf(x);
        const int filled = program.resize(program.scalar(std::numeric_limits<float>::lowest()), shape.c * count, width,
                                          nolk::ResizeMode::nearest, nolk::ResizeTransMode::halfPixel);
        return program.view(filled, {1, shape.c, count, width, 3});
    };
    const auto joined = [&](int before, int behind, nolk::Axis axis) {
        const nolk::TensorShape shape = program.shapeOf(x);
        const bool isRows = axis == nolk::Axis::h;
        std::vector<int> parts;
        if (before > 0) parts.push_back(isRows ? rows(before, shape.w) : rows(shape.h, before));
        parts.push_back(x);
        if (behind > 0) parts.push_back(isRows ? rows(behind, shape.w) : rows(shape.h, behind));
        x = program.concat(parts, axis);
    };
    joined(padding.top, padding.bottom, nolk::Axis::h);
    joined(padding.left, padding.right, nolk::Axis::w);
    return x;
}

// The maximum over a dilated window, tap by tap.
int maximumOfTaps(NodeLowering& n, int x, const Windows& windows) {
    x = withLowest(n.program, x, sum(windows.padding, beyond(n, windows)));
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
