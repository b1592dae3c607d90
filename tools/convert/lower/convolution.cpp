// Conv and ConvTranspose.
#include <algorithm>

#include "convert/lower/operators.h"
#include "convert/lower/windows.h"

namespace convert {

namespace {

std::vector<std::int64_t> spatial(const Dims& weights) { return {weights.begin() + 2, weights.end()}; }

const Array& kernelOf(const NodeLowering& n) {
    const Array& weights = n.constant(1, "the kernel");
    if (weights.dims().size() != n.dims(0).size()) n.refuse("the kernel has another rank than the input");
    return weights;
}

// [in, out, kh, kw] of one group of a transposed convolution, with zeros between the taps for a dilation and behind
// them for output rows that no tap reaches.
Floats spreadKernel(const Program& program, const Array& kernel, const Windows& windows, int group, int groupInputs,
                    nolk::DimsHW size) {
    const Floats source = floatsOf(kernel);
    const auto outputs = static_cast<std::size_t>(kernel.dims()[1]);
    const auto kh = static_cast<std::size_t>(windows.kernel.h), kw = static_cast<std::size_t>(windows.kernel.w);
    const auto h = static_cast<std::size_t>(size.h), w = static_cast<std::size_t>(size.w);
    program.requireFloats(std::int64_t{groupInputs} * kernel.dims()[1] * size.h * size.w);
    std::vector<float> spread(static_cast<std::size_t>(groupInputs) * outputs * h * w, 0.0f);
    const float* from =
        source->data() + static_cast<std::size_t>(group) * static_cast<std::size_t>(groupInputs) * outputs * kh * kw;
    for (std::size_t plane = 0; plane < static_cast<std::size_t>(groupInputs) * outputs; ++plane)
        for (std::size_t y = 0; y < kh; ++y)
            for (std::size_t x = 0; x < kw; ++x)
                spread[(plane * h + y * static_cast<std::size_t>(windows.dilation.h)) * w +
                       x * static_cast<std::size_t>(windows.dilation.w)] = from[(plane * kh + y) * kw + x];
    return std::make_shared<const std::vector<float>>(std::move(spread));
}

Floats part(const Floats& values, std::size_t begin, std::size_t count) {
    if (!values) return nullptr;
    const auto first = values->begin() + static_cast<std::ptrdiff_t>(begin);
    return std::make_shared<const std::vector<float>>(first, first + static_cast<std::ptrdiff_t>(count));
}

// One axis of a transposed convolution: what is cut off before the result, and how many zeros the kernel takes behind
// its last tap so that no more has to be cut off behind than there is.
struct Border {
    int before = 0;
    int behind = 0;
    int zeros = 0;
};

Border borderOf(std::int64_t in, std::int64_t out, int before, int kernel, int stride, int dilation) {
    const std::int64_t whole = (in - 1) * stride + (kernel - 1) * std::int64_t{dilation} + 1;
    const std::int64_t behind = whole - before - out;
    return {before, asInt(std::max<std::int64_t>(behind, 0)), asInt(std::max<std::int64_t>(-behind, 0))};
}

// The padding before the result, when the node gives the result's extents instead.
int derivedPadding(const NodeLowering& n, std::int64_t in, std::int64_t out, int kernel, int stride, int dilation,
                   std::int64_t outputPadding) {
    const std::int64_t total =
        std::max<std::int64_t>(stride * (in - 1) + outputPadding + (kernel - 1) * std::int64_t{dilation} + 1 - out, 0);
    return asInt(n.text("auto_pad", "NOTSET") == "SAME_UPPER" ? total / 2 : total - total / 2);
}

}  // namespace

void lowerConv(NodeLowering& n) {
    const Array& kernel = kernelOf(n);
    const int x = planes(n, 0, false);
    const Windows windows = windowsOf(n, spatial(kernel.dims()));
    const int groups = asInt(n.integer("group", 1));
    const auto outputs = kernel.dims()[0];
    if (groups < 1 || outputs % groups != 0 || kernel.dims()[1] * groups != n.dims(0)[1])
        n.refuse("kernel " + describeDims(kernel.dims()) + " with " + std::to_string(groups) +
                 " groups does not fit the input " + describeDims(n.dims(0)));
    KernelWeights weights{groups,
                          asInt(outputs / groups),
                          asInt(kernel.dims()[1]),
                          windows.kernel.h,
                          windows.kernel.w,
                          floatsOf(kernel),
                          n.has(2) ? n.floats(2, "the bias") : nullptr};
    if (weights.bias && static_cast<std::int64_t>(weights.bias->size()) != outputs)
        n.refuse("the bias has " + std::to_string(weights.bias->size()) + " values for " + std::to_string(outputs) +
                 " channels");
    n.result(placed(n.program.convolve(x, windows.padding, windows.stride, windows.dilation, weights), n.outDims()));
}

void lowerConvTranspose(NodeLowering& n) {
    const Array& kernel = kernelOf(n);
    const int x = planes(n, 0, false);
    Windows windows = windowsOf(n, spatial(kernel.dims()));
    const int groups = asInt(n.integer("group", 1));
    const Dims& in = n.dims(0);
    const Dims& out = n.outDims();
    if (groups < 1 || kernel.dims()[0] != in[1] || in[1] % groups != 0)
        n.refuse("kernel " + describeDims(kernel.dims()) + " does not fit the input " + describeDims(in));
    const bool isPlane = in.size() == 4;
    const auto extra = n.integerList("output_padding", {0, 0});
    const std::string automatic = n.text("auto_pad", "NOTSET");
    if (n.attribute("output_shape") != nullptr || automatic == "SAME_UPPER" || automatic == "SAME_LOWER") {
        windows.padding.left = derivedPadding(n, in.back(), out.back(), windows.kernel.w, windows.stride.w,
                                              windows.dilation.w, extra.back());
        if (isPlane)
            windows.padding.top =
                derivedPadding(n, in[2], out[2], windows.kernel.h, windows.stride.h, windows.dilation.h, extra.front());
    }
    const Border columns =
        borderOf(in.back(), out.back(), windows.padding.left, windows.kernel.w, windows.stride.w, windows.dilation.w);
    const Border rows =
        isPlane ? borderOf(in[2], out[2], windows.padding.top, windows.kernel.h, windows.stride.h, windows.dilation.h)
                : Border{};
    const nolk::DimsHW size{(windows.kernel.h - 1) * windows.dilation.h + 1 + rows.zeros,
                            (windows.kernel.w - 1) * windows.dilation.w + 1 + columns.zeros};
    const Floats bias = n.has(2) ? n.floats(2, "the bias") : nullptr;
    const int groupInputs = asInt(in[1] / groups), groupOutputs = asInt(kernel.dims()[1]);
    std::vector<int> parts;
    for (int group = 0; group < groups; ++group) {
        const int share = n.program.slice(x, nolk::Axis::c, group * groupInputs, groupInputs);
        KernelWeights weights{1,
                              groupOutputs,
                              groupInputs,
                              size.h,
                              size.w,
                              spreadKernel(n.program, kernel, windows, group, groupInputs, size),
                              part(bias, static_cast<std::size_t>(group) * static_cast<std::size_t>(groupOutputs),
                                   static_cast<std::size_t>(groupOutputs))};
        parts.push_back(n.program.deConvolve(share, {rows.before, rows.behind, columns.before, columns.behind},
                                             windows.stride, weights));
    }
    n.result(placed(n.program.concat(parts, nolk::Axis::c), out));
}

}  // namespace convert
