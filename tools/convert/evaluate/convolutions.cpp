#include <algorithm>
#include <cstdint>

#include "convert/evaluate/Operator.h"
#include "convert/evaluate/window.h"

namespace convert {

namespace {

// Weights [out, in of a group, kh, kw] of Conv, or [in, out of a group, kh, kw] of ConvTranspose.
struct Convolution {
    Planes input, weights, output;
    std::int64_t groups = 1;
    Window window;
};

Dims kernelOf(const Call& call) {
    need(call.rank(1) == call.rank(0),
         "weights of shape " + describeDims(call.dims(1)) + " for an input of " + describeDims(call.dims(0)));
    Dims own(call.dims(1).begin() + 2, call.dims(1).end());
    const auto said = call.intsAttribute("kernel_shape");
    need(!said || said->empty() || *said == own, "kernel_shape is not that of the weights", kAgainstOnnx);
    return own;
}

Convolution begin(const Call& call) {
    Convolution conv;
    conv.input = planesOf(call.dims(0));
    const Dims kernel = kernelOf(call);
    conv.weights = planesOf(call.dims(1));
    conv.groups = call.intAttribute("group", 1);
    conv.window = windowOf(call, kernel, conv.input);
    need(conv.groups >= 1 && conv.input.c % conv.groups == 0 && conv.weights.n % conv.groups == 0,
         "group " + std::to_string(conv.groups) + " does not divide the channels");
    conv.output.n = conv.input.n;
    return conv;
}

void checkBias(const Call& call, std::int64_t channels) {
    need(!call.has(2) || call.dims(2) == Dims{channels}, "bias of shape " +
                                                             (call.has(2) ? describeDims(call.dims(2)) : "") + " for " +
                                                             std::to_string(channels) + " channels");
}

Convolution convOf(const Call& call) {
    Convolution conv = begin(call);
    need(conv.weights.c * conv.groups == conv.input.c,
         "weights of shape " + describeDims(call.dims(1)) + " for an input of " + describeDims(call.dims(0)));
    conv.output.c = conv.weights.n;
    conv.output.h = positions(conv.window.h, conv.input.h, false);
    conv.output.w = positions(conv.window.w, conv.input.w, false);
    checkBias(call, conv.output.c);
    return conv;
}

// The padding that makes the result of the extent that output_shape or auto_pad asks for. Negative padding at the end
// adds elements that no input reaches.
void padToExtent(Window::Side& side, std::int64_t input, std::int64_t extra, std::int64_t wanted, bool moreAtEnd) {
    const std::int64_t total = (input - 1) * side.stride + extra + side.extent() - wanted;
    side.begin = total <= 0 ? 0 : moreAtEnd ? total / 2 : total - total / 2;
    side.end = total - side.begin;
}

Convolution convTransposeOf(const Call& call) {
    Convolution conv = begin(call);
    need(conv.weights.n == conv.input.c,
         "weights of shape " + describeDims(call.dims(1)) + " for an input of " + describeDims(call.dims(0)));
    conv.output.c = conv.weights.c * conv.groups;
    const std::size_t spatial = static_cast<std::size_t>(call.rank(0)) - 2;
    const auto extra = call.intsAttribute("output_padding");
    need(!extra || extra->empty() || extra->size() == spatial, "output_padding has the wrong number of values",
         kAgainstOnnx);
    const std::int64_t extraW = extra && !extra->empty() ? extra->back() : 0;
    const std::int64_t extraH = extra && extra->size() == 2 ? extra->front() : 0;
    need(extraH >= 0 && extraW >= 0 && extraH < (1 << 24) && extraW < (1 << 24), "output_padding is not possible",
         kAgainstOnnx);

    auto& h = conv.window.h;
    auto& w = conv.window.w;
    const std::string automatic = call.stringAttribute("auto_pad", "NOTSET");
    if (const auto wanted = call.intsAttribute("output_shape"); wanted && !wanted->empty()) {
        need(wanted->size() >= spatial, "output_shape has too few values", kAgainstOnnx);
        const bool moreAtEnd = automatic == "SAME_UPPER";
        padToExtent(w, conv.input.w, extraW, wanted->back(), moreAtEnd);
        if (spatial == 2) padToExtent(h, conv.input.h, extraH, (*wanted)[wanted->size() - 2], moreAtEnd);
    } else if (automatic == "SAME_UPPER" || automatic == "SAME_LOWER") {
        padToExtent(w, conv.input.w, extraW, conv.input.w * w.stride, automatic == "SAME_UPPER");
        padToExtent(h, conv.input.h, extraH, conv.input.h * h.stride, automatic == "SAME_UPPER");
    }
    conv.output.h = (conv.input.h - 1) * h.stride + extraH + h.extent() - h.begin - h.end;
    conv.output.w = (conv.input.w - 1) * w.stride + extraW + w.extent() - w.begin - w.end;
    need(conv.output.h >= 1 && conv.output.w >= 1, "makes an empty result");
    checkBias(call, conv.output.c);
    return conv;
}

Values convShapes(const Call& call) {
    return {valueOf(call.in(0).type, dimsOf(convOf(call).output, call.dims(0).size()))};
}

Values convTransposeShapes(const Call& call) {
    return {valueOf(call.in(0).type, dimsOf(convTransposeOf(call).output, call.dims(0).size()))};
}

// The output positions o for which 0 <= o * stride + shift < extent.
struct Range {
    std::int64_t first, last;  // last not included
};
Range inside(std::int64_t shift, std::int64_t stride, std::int64_t extent, std::int64_t count) {
    const std::int64_t first = shift >= 0 ? 0 : (-shift + stride - 1) / stride;
    const std::int64_t last = extent > shift ? (extent - shift + stride - 1) / stride : 0;
    return {std::min(first, count), std::max(std::min(last, count), std::min(first, count))};
}

// plane[oh, ow] += weight * x[oh * stride + ..., ...] for one tap of the kernel.
void addTap(const Convolution& conv, const float* x, double weight, std::int64_t kh, std::int64_t kw, double* plane) {
    const auto& [h, w] = conv.window;
    const std::int64_t shiftH = kh * h.dilation - h.begin, shiftW = kw * w.dilation - w.begin;
    const Range rows = inside(shiftH, h.stride, conv.input.h, conv.output.h);
    const Range columns = inside(shiftW, w.stride, conv.input.w, conv.output.w);
    for (std::int64_t oh = rows.first; oh < rows.last; ++oh) {
        const float* line = x + (oh * h.stride + shiftH) * conv.input.w + shiftW;
        double* sums = plane + oh * conv.output.w;
        for (std::int64_t ow = columns.first; ow < columns.last; ++ow) sums[ow] += weight * line[ow * w.stride];
    }
}

// The same with the parts of x and plane exchanged.
void addTransposedTap(const Convolution& conv, const float* x, double weight, std::int64_t kh, std::int64_t kw,
                      double* plane) {
    const auto& [h, w] = conv.window;
    const std::int64_t shiftH = kh * h.dilation - h.begin, shiftW = kw * w.dilation - w.begin;
    const Range rows = inside(shiftH, h.stride, conv.output.h, conv.input.h);
    const Range columns = inside(shiftW, w.stride, conv.output.w, conv.input.w);
    for (std::int64_t ih = rows.first; ih < rows.last; ++ih) {
        const float* line = x + ih * conv.input.w;
        double* sums = plane + (ih * h.stride + shiftH) * conv.output.w + shiftW;
        for (std::int64_t iw = columns.first; iw < columns.last; ++iw) sums[iw * w.stride] += weight * line[iw];
    }
}

double workOf(const Convolution& conv, const Planes& positions) {
    return static_cast<double>(elementCount(dimsOf(conv.weights, 4))) * static_cast<double>(conv.input.n) *
           static_cast<double>(positions.h * positions.w);
}

// One output plane: addAll(plane, sample, channel) adds all taps to the bias.
template <typename AddAll>
Arrays computePlanes(const Call& call, const Value& result, const Convolution& conv, AddAll&& addAll) {
    std::vector<float> values;
    values.reserve(static_cast<std::size_t>(elementCount(result.dims)));
    std::vector<double> plane(static_cast<std::size_t>(conv.output.h * conv.output.w));
    for (std::int64_t n = 0; n < conv.output.n; ++n)
        for (std::int64_t c = 0; c < conv.output.c; ++c) {
            std::fill(plane.begin(), plane.end(), call.has(2) ? call.floats(2)[static_cast<std::size_t>(c)] : 0.0);
            addAll(plane.data(), n, c);
            values.insert(values.end(), plane.begin(), plane.end());
        }
    return {{result.type, result.dims, std::move(values)}};
}

Arrays computeConv(const Call& call, const Values& results) {
    const Convolution conv = convOf(call);
    call.takeWork(workOf(conv, conv.output));
    const float *x = call.floats(0).data(), *weights = call.floats(1).data();
    const std::int64_t perGroup = conv.output.c / conv.groups, taps = conv.weights.h * conv.weights.w;
    return computePlanes(call, results[0], conv, [&](double* plane, std::int64_t n, std::int64_t out) {
        for (std::int64_t in = 0; in < conv.weights.c; ++in) {
            const std::int64_t channel = out / perGroup * conv.weights.c + in;
            const float* source = x + (n * conv.input.c + channel) * conv.input.h * conv.input.w;
            for (std::int64_t tap = 0; tap < taps; ++tap)
                addTap(conv, source, weights[(out * conv.weights.c + in) * taps + tap], tap / conv.weights.w,
                       tap % conv.weights.w, plane);
        }
    });
}

Arrays computeConvTranspose(const Call& call, const Values& results) {
    const Convolution conv = convTransposeOf(call);
    call.takeWork(workOf(conv, conv.input));
    const float *x = call.floats(0).data(), *weights = call.floats(1).data();
    const std::int64_t perGroup = conv.weights.c, inPerGroup = conv.input.c / conv.groups;
    const std::int64_t taps = conv.weights.h * conv.weights.w;
    return computePlanes(call, results[0], conv, [&](double* plane, std::int64_t n, std::int64_t out) {
        for (std::int64_t in = 0; in < inPerGroup; ++in) {
            const std::int64_t channel = out / perGroup * inPerGroup + in;
            const float* source = x + (n * conv.input.c + channel) * conv.input.h * conv.input.w;
            for (std::int64_t tap = 0; tap < taps; ++tap)
                addTransposedTap(conv, source, weights[(channel * perGroup + out % perGroup) * taps + tap],
                                 tap / conv.weights.w, tap % conv.weights.w, plane);
        }
    });
}

}  // namespace

const std::vector<Operator>& convolutionOperators() {
    static const std::vector<Operator> rows = {
        {"Conv", convShapes, computeConv},
        {"ConvTranspose", convTransposeShapes, computeConvTranspose},
    };
    return rows;
}

}  // namespace convert
