// Resize and Upsample, one axis after the other: an output element is a weighted sum of input elements.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

// What happens to one axis.
struct Scaling {
    std::int64_t in = 0, out = 0;
    double scale = 1;
};

// The product is one of floats: exporters write 19/10 as the nearest float, which is smaller, and mean 19 of 10. Such a
// scale stands for the quotient of the extents.
Scaling scaled(std::int64_t extent, float scale) {
    need(scale > 0 && std::isfinite(scale) && scale * static_cast<double>(extent) < 1e9, "a scale is not possible");
    const auto in = static_cast<float>(extent);
    const float out = std::floor(in * scale);
    const bool isQuotient = extent > 0 && out / in == scale;
    return {extent, static_cast<std::int64_t>(out), isQuotient ? double{out} / double{in} : double{scale}};
}

Scaling sized(std::int64_t extent, std::int64_t size) {
    need(size >= 1 && extent >= 1, "a size of " + std::to_string(size) + " is not possible");
    return {extent, size, static_cast<double>(size) / static_cast<double>(extent)};
}

bool isGiven(const Call& call, std::size_t input) { return call.has(input) && elementCount(call.dims(input)) != 0; }

// Upsample before opset 9 has its scales as an attribute; Resize has them as its second input in opset 10 and as its
// third from opset 11 on.
std::vector<float> scalesOf(const Call& call) {
    if (call.node.op_type() == "Upsample" && call.opset < 9) {
        const auto* scales = call.find("scales");
        need(scales != nullptr, "scales are missing", kAgainstOnnx);
        return {scales->floats().begin(), scales->floats().end()};
    }
    const std::size_t input = call.node.op_type() == "Upsample" || call.opset < 11 ? 1 : 2;
    return call.array(input, "scales").floats();
}

std::vector<std::size_t> axesOf(const Call& call) {
    std::vector<std::size_t> axes;
    if (const auto said = call.intsAttribute("axes")) {
        for (const std::int64_t axis : *said) axes.push_back(static_cast<std::size_t>(wrapAxis(axis, call.rank(0))));
        return axes;
    }
    for (std::size_t axis = 0; axis < call.dims(0).size(); ++axis) axes.push_back(axis);
    return axes;
}

// keep_aspect_ratio_policy: all axes get the smallest or the largest of the factors that the sizes mean.
void keepRatio(const Call& call, const std::vector<std::size_t>& axes, std::vector<Scaling>& scalings) {
    const std::string policy = call.stringAttribute("keep_aspect_ratio_policy", "stretch");
    if (policy == "stretch") return;
    need(policy == "not_larger" || policy == "not_smaller",
         "keep_aspect_ratio_policy " + inQuotes(policy) + " is not known", kAgainstOnnx);
    double factor = scalings[axes.at(0)].scale;
    for (const std::size_t axis : axes)
        factor =
            policy == "not_larger" ? std::min(factor, scalings[axis].scale) : std::max(factor, scalings[axis].scale);
    for (const std::size_t axis : axes) {
        scalings[axis].scale = factor;
        scalings[axis].out = static_cast<std::int64_t>(std::round(factor * static_cast<double>(scalings[axis].in)));
    }
}

std::vector<Scaling> scalingsOf(const Call& call) {
    std::vector<Scaling> scalings;
    for (const std::int64_t extent : call.dims(0)) scalings.push_back({extent, extent, 1});
    const std::vector<std::size_t> axes = axesOf(call);
    const bool hasSizes = call.node.op_type() == "Resize" && call.opset >= 11 && isGiven(call, 3);
    const std::vector<std::int64_t> sizes = hasSizes ? call.ints(3, "sizes") : std::vector<std::int64_t>();
    const std::vector<float> scales = hasSizes ? std::vector<float>() : scalesOf(call);
    need(sizes.size() + scales.size() == axes.size(), "scales or sizes have the wrong number of values", kAgainstOnnx);
    for (std::size_t i = 0; i < axes.size(); ++i) {
        Scaling& scaling = scalings[axes[i]];
        scaling = hasSizes ? sized(scaling.in, sizes[i]) : scaled(scaling.in, scales[i]);
    }
    if (hasSizes) keepRatio(call, axes, scalings);
    return scalings;
}

Values resizeShapes(const Call& call) {
    Dims dims;
    for (const Scaling& scaling : scalingsOf(call)) dims.push_back(scaling.out);
    return {valueOf(call.in(0).type, std::move(dims))};
}

double sourceOf(std::int64_t out, const Scaling& scaling, const std::string& mode) {
    const auto x = static_cast<double>(out), in = static_cast<double>(scaling.in);
    const double extent = scaling.scale * in;  // not rounded to a whole number
    if (mode == "asymmetric") return x / scaling.scale;
    if (mode == "align_corners") return scaling.out == 1 ? 0 : x * (in - 1) / (extent - 1);
    if (mode == "half_pixel") return (x + 0.5) / scaling.scale - 0.5;
    if (mode == "pytorch_half_pixel") return scaling.out > 1 ? (x + 0.5) / scaling.scale - 0.5 : 0;
    if (mode == "tf_half_pixel_for_nn") return (x + 0.5) / scaling.scale;
    if (mode == "half_pixel_symmetric") {
        const double adjustment = static_cast<double>(scaling.out) / extent;
        return in / 2 * (1 - adjustment) + (x + 0.5) / scaling.scale - 0.5;
    }
    throw OnnxError("coordinate_transformation_mode " + inQuotes(mode) + " is not supported");
}

double nearestOf(double x, const std::string& mode) {
    if (mode == "floor") return std::floor(x);
    if (mode == "ceil") return std::ceil(x);
    if (mode == "round_prefer_floor") return std::ceil(x - 0.5);
    if (mode == "round_prefer_ceil") return std::floor(x + 0.5);
    throw OnnxError("nearest_mode " + inQuotes(mode) + " is not known");
}

struct Tap {
    std::int64_t index;
    double weight;
};

// The four weights around a place, for a fraction from 0 to 1.
std::vector<double> cubicWeights(double t, double a) {
    const auto near = [&](double x) { return ((a + 2) * x - (a + 3)) * x * x + 1; };
    const auto far = [&](double x) { return ((a * x - 5 * a) * x + 8 * a) * x - 4 * a; };
    return {far(t + 1), near(t), near(1 - t), far(2 - t)};
}

struct Manner {
    std::string mode, coordinates, nearest;
    double cubic = -0.75;
    bool excludesOutside = false;
};

Manner mannerOf(const Call& call) {
    Manner manner;
    manner.mode = call.stringAttribute("mode", "nearest");
    const bool isOld = call.node.op_type() == "Upsample" || call.opset < 11;
    manner.coordinates = isOld ? "asymmetric" : call.stringAttribute("coordinate_transformation_mode", "half_pixel");
    manner.nearest = isOld ? "floor" : call.stringAttribute("nearest_mode", "round_prefer_floor");
    manner.cubic = call.floatAttribute("cubic_coeff_a", -0.75);
    manner.excludesOutside = call.intAttribute("exclude_outside", 0) != 0;
    need(manner.mode == "nearest" || manner.mode == "linear" || manner.mode == "cubic",
         "mode " + inQuotes(manner.mode) + " is not known");
    need(call.intAttribute("antialias", 0) == 0, "antialias is not supported");
    return manner;
}

std::vector<Tap> tapsOf(double x, std::int64_t extent, const Manner& manner) {
    const auto clamped = [&](double index) {
        return static_cast<std::int64_t>(std::clamp(index, 0.0, static_cast<double>(extent - 1)));
    };
    if (manner.mode == "nearest") return {{clamped(nearestOf(x, manner.nearest)), 1}};
    const double base = std::floor(x);
    if (manner.mode == "linear") return {{clamped(base), 1 - (x - base)}, {clamped(base + 1), x - base}};
    const std::vector<double> weights = cubicWeights(x - base, manner.cubic);
    std::vector<Tap> taps;
    double sum = 0;
    for (int i = 0; i < 4; ++i) {
        const double index = base - 1 + i;
        const bool outside = index < 0 || index > static_cast<double>(extent - 1);
        taps.push_back({clamped(index), outside && manner.excludesOutside ? 0 : weights[static_cast<std::size_t>(i)]});
        sum += taps.back().weight;
    }
    for (Tap& tap : taps) tap.weight /= sum;
    return taps;
}

// One axis of values [outer, in, inner].
std::vector<double> resizedAxis(const std::vector<double>& values, std::int64_t outer, std::int64_t inner,
                                const Scaling& scaling, const Manner& manner) {
    std::vector<std::vector<Tap>> taps;
    for (std::int64_t i = 0; i < scaling.out; ++i)
        taps.push_back(tapsOf(sourceOf(i, scaling, manner.coordinates), scaling.in, manner));
    std::vector<double> result;
    result.reserve(static_cast<std::size_t>(outer * scaling.out * inner));
    for (std::int64_t o = 0; o < outer; ++o)
        for (const std::vector<Tap>& all : taps)
            for (std::int64_t i = 0; i < inner; ++i) {
                double sum = 0;
                for (const Tap& tap : all)
                    sum += tap.weight * values[static_cast<std::size_t>((o * scaling.in + tap.index) * inner + i)];
                result.push_back(sum);
            }
    return result;
}

Arrays computeResize(const Call& call, const Values& results) {
    const std::vector<Scaling> scalings = scalingsOf(call);
    const Manner manner = mannerOf(call);
    std::vector<double> values;
    if (call.array(0).isFloat())
        values.assign(call.floats(0).begin(), call.floats(0).end());
    else
        values.assign(call.array(0).ints().begin(), call.array(0).ints().end());
    Dims dims = call.dims(0);
    need(elementCount(dims) != 0, "input of shape " + describeDims(dims) + " is empty");
    for (std::size_t axis = 0; axis < dims.size(); ++axis) {
        if (scalings[axis].in == scalings[axis].out && scalings[axis].scale == 1) continue;
        const auto at = dims.begin() + static_cast<std::ptrdiff_t>(axis);
        const std::int64_t outer = elementCount(Dims(dims.begin(), at)), inner = elementCount(Dims(at + 1, dims.end()));
        need(outer * inner <= kLargestResult / std::max<std::int64_t>(scalings[axis].out, 1),
             "makes too many elements");
        values = resizedAxis(values, outer, inner, scalings[axis], manner);
        dims[axis] = scalings[axis].out;
    }
    if (isFloatType(results[0].type))
        return {{results[0].type, dims, std::vector<float>(values.begin(), values.end())}};
    return {{results[0].type, dims, std::vector<std::int64_t>(values.begin(), values.end())}};
}

}  // namespace

const std::vector<Operator>& resizeOperators() {
    static const std::vector<Operator> rows = {
        {"Resize", resizeShapes, computeResize},
        {"Upsample", resizeShapes, computeResize},
    };
    return rows;
}

}  // namespace convert
