#include "inspect/diagnostics.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "inspect/arguments.h"
#include "inspect/counts.h"
#include "inspect/format.h"
#include "model/operations.h"

namespace {

using Builder = nolk::RunnerBuilder;

constexpr const char* kUnwritten = "the output is left unwritten";

void warn(LoggedOperation& operation, std::string text) { operation.diagnostics.push_back({false, std::move(text)}); }

void warnOfShapes(LoggedOperation& operation, std::string text) {
    operation.diagnostics.push_back({false, std::move(text), true});
}

// An error if some elements of the output are written by no layer.
void reportShapes(LoggedOperation& operation, bool leavesUnwritten, const std::string& text) {
    operation.diagnostics.push_back(
        {leavesUnwritten, text + (leavesUnwritten ? ": a part of the output is left unwritten" : ""), true});
}

void checkFloats(LoggedOperation& operation, const std::string& what, const float* values, std::int64_t count) {
    if (!values) return;
    const auto notFinite = std::count_if(values, values + count, [](float v) { return !std::isfinite(v); });
    if (notFinite == 0) return;
    warn(operation, what + ": " + grouped(notFinite) + " of " + grouped(count) + (notFinite == 1 ? " is" : " are") +
                        " not finite");
}

void checkVector(LoggedOperation& operation, const std::string& what, nolk::Vector vector, const nolk::TensorShape& x) {
    if (vector.count > x.c)
        warnOfShapes(operation, what + " has " + counted(vector.count, "value") + " for " + counted(x.c, "channel"));
}

void checkVariance(LoggedOperation& operation, nolk::Vector variance, float epsilon, const nolk::TensorShape& x) {
    if (!variance.data) return;
    const int count = std::max(std::min(variance.count, x.c), 0);
    const auto bad =
        std::count_if(variance.data, variance.data + count, [epsilon](float v) { return v + epsilon <= 0.0f; });
    if (bad > 0) warn(operation, "variance + epsilon is not above 0 for " + counted(bad, "channel"));
}

void checkDims(LoggedOperation& operation, const std::string& what, nolk::DimsHW dims) {
    if (dims.h < 1 || dims.w < 1)
        warn(operation, what + " should be at least 1, is " + std::to_string(dims.h) + " x " + std::to_string(dims.w));
}

void checkChannels(LoggedOperation& operation, std::int64_t expected, const nolk::TensorShape& x) {
    if (expected != x.c)
        warnOfShapes(operation,
                     "weights are for " + counted(expected, "input channel") + ", the input has " + grouped(x.c));
}

void checkBroadcast(LoggedOperation& operation, const nolk::TensorShape& a, const nolk::TensorShape& b) {
    const auto fits = [](int mine, int other) { return other == mine || other == 1; };
    if (b.n == a.n && fits(a.c, b.c) && fits(a.h, b.h) && fits(a.w, b.w)) return;
    warnOfShapes(operation, "shapes disagree: the second input is " + shapeText(b) + ", the first " + shapeText(a));
}

// Whether an input of a concat fills its part of the output, whose extents off the axis are those of the first input.
bool fillsItsPart(const nolk::TensorShape& s, const nolk::TensorShape& out, int axis) {
    switch (axis) {
        case 1:
            return elementsOf(s) >= productOf({out.n, s.c, out.h, out.w});
        case 2:
            return s.w == out.w && productOf({s.n, s.c}) >= productOf({out.n, out.c});
        case 3:
            return s.n >= out.n && s.c >= out.c && s.h >= out.h;
        default:
            return true;
    }
}

void checkJoined(LoggedOperation& operation, const std::vector<nolk::TensorShape>& shapes, int axis) {
    const nolk::TensorShape& first = shapes.front();
    const nolk::TensorShape& out = operation.output;
    std::int64_t joined = 0;
    bool fills = true;
    for (const nolk::TensorShape& s : shapes) {
        joined = sumOf(joined, elementsOf(s));
        fills = fills && (fillsItsPart(s, out, axis) || elementsOf(out) == 0);
    }
    for (std::size_t i = 1; i < shapes.size(); ++i) {
        const nolk::TensorShape& s = shapes[i];
        const bool agrees = (axis == 0 || s.n == first.n) && (axis == 1 || s.c == first.c) &&
                            (axis == 2 || s.h == first.h) && (axis == 3 || s.w == first.w);
        if (agrees) continue;
        reportShapes(operation, !fills || joined < elementsOf(out),
                     "shapes disagree off the axis: input " + std::to_string(i) + " is " + shapeText(s) +
                         ", the first " + shapeText(first));
        return;  // one warning is enough
    }
}

void checkReduced(LoggedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to) {
    const auto fits = [](int reduced, int extent) { return reduced == extent || reduced == 1; };
    if (to.n == from.n && fits(to.c, from.c) && fits(to.h, from.h) && fits(to.w, from.w)) return;
    // A reduction of the channels alone writes one plane for each sample, any other fills all of its output.
    const bool isOfChannels = to.c != from.c && to.h == from.h && to.w == from.w;
    const bool leavesUnwritten = isOfChannels && elementsOf(to) > productOf({from.n, from.h, from.w});
    reportShapes(operation, leavesUnwritten,
                 "extents should be 1 or the input's " + shapeText(from) + ", are " + shapeText(to));
}

void checkResized(LoggedOperation& operation, nolk::ResizeMode mode, const nolk::TensorShape& from,
                  const nolk::TensorShape& to) {
    if (from.n == to.n && from.c == to.c) return;
    // Linear interpolation computes the planes of the input's samples and channels only.
    const std::int64_t written = from.n < 1 ? 0 : productOf({from.n - 1, to.c}) + from.c;
    const bool isWhole = (from.n == 1 || from.c >= to.c) && written >= productOf({to.n, to.c});
    reportShapes(
        operation, mode == nolk::ResizeMode::linear && elementsOf(to) > 0 && !isWhole,
        "the output " + shapeText(to) + " should have the samples and channels of the input " + shapeText(from));
}

void checkProduct(LoggedOperation& operation, const nolk::TensorShape& a, const nolk::TensorShape& b) {
    const auto check = [&operation](int mine, int other, const std::string& what, const char* counterpart) {
        if (other > mine)
            warnOfShapes(operation, "the second input has " + counted(other, what) + " for " +
                                        counted(mine, counterpart) + " of the first");
    };
    check(a.n, b.n, "sample", "sample");
    check(a.c, b.c, "channel", "channel");
    check(a.w, b.h, "row", "column");
}

void checkElements(LoggedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to) {
    if (elementsOf(from) != elementsOf(to))
        reportShapes(operation, elementsOf(to) > elementsOf(from),
                     "the input " + shapeText(from) + " has " + counted(elementsOf(from), "element") + ", the output " +
                         shapeText(to) + " has " + grouped(elementsOf(to)));
}

void checkEnum(LoggedOperation& operation, bool isError, const std::string& what, int value, int low, int high,
               const char* consequence) {
    if (value >= low && value <= high) return;
    operation.diagnostics.push_back({isError, what + " must be " + std::to_string(low) + " to " + std::to_string(high) +
                                                  ", is " + std::to_string(value) + ": " + consequence});
}

// Along an axis that is taken twice, only the diagonal of the output is written; nothing at all if an axis that is left
// out has no element.
void checkPermutation(LoggedOperation& operation, nolk::Perm perm, const nolk::TensorShape& x) {
    const int extents[] = {x.n, x.c, x.h, x.w};
    bool isPermutation = true, leavesUnwritten = elementsOf(x) == 0;
    for (int axis = 0; axis < 4; ++axis) {
        const auto uses = std::count(perm.axes, perm.axes + 4, axis);
        isPermutation = isPermutation && uses == 1;
        leavesUnwritten = leavesUnwritten || (uses > 1 && extents[axis] > 1);
    }
    if (isPermutation) return;
    reportShapes(operation, leavesUnwritten && elementsOf(operation.output) > 0,
                 "axes " + operation.details + " are no permutation");
}

// A slice of a matrix is a matrix, so it has a row and a column even if it takes none.
void checkSlice(LoggedOperation& operation, nolk::SlicePos pos, const nolk::TensorShape& x) {
    const int extents[] = {x.n, x.c, x.h, x.w};
    const int axis = pos.axis < 0 ? pos.axis + 4 : pos.axis;
    if (axis < 0 || axis > 3) return;
    if (std::max(pos.start, 0) >= std::min(pos.end, extents[axis]) && elementsOf(operation.output) > 0)
        operation.diagnostics.push_back({true, std::string("takes nothing along its axis: ") + kUnwritten});
}

void checkRange(LoggedOperation& operation, float min, float max) {
    if (!(min <= max)) warn(operation, "no number lies in " + shortText(min) + " to " + shortText(max));
}

// Checks for all operations: values that are not finite, strides and kernels below 1, vectors that are too long.
void checkArguments(LoggedOperation& operation, const Call& call, const nolk::TensorShape& x) {
    for (const FloatArray& array : arraysOf(call)) checkFloats(operation, array.name, array.data, array.count);
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        const std::string name = call.operation.fields[i].name;
        if (const auto* value = std::get_if<float>(&call.arguments[i])) checkFloats(operation, name, value, 1);
        if (const auto* dims = std::get_if<nolk::DimsHW>(&call.arguments[i])) checkDims(operation, name, *dims);
        if (const auto* vector = std::get_if<nolk::Vector>(&call.arguments[i]))
            checkVector(operation, name, *vector, x);
        if (const auto* w = std::get_if<nolk::Weights>(&call.arguments[i]))
            checkDims(operation, "kernel", {w->kernelH, w->kernelW});
    }
}

}  // namespace

void addDiagnostics(LoggedOperation& operation, const Call& call, const std::vector<nolk::TensorShape>& inputs) {
    const auto& a = call.arguments;
    const nolk::TensorShape x = inputs.empty() ? nolk::TensorShape{} : inputs[0];
    checkArguments(operation, call, x);
    switch (call.operation.code) {
        case kCodeOf<&Builder::convolve>: {
            const auto& w = std::get<nolk::Weights>(a[3]);
            return checkChannels(operation, productOf({w.groups, w.inChannels}), x);
        }
        case kCodeOf<&Builder::deConvolve>: {
            const auto dilation = std::get<nolk::DimsHW>(a[2]);
            checkChannels(operation, std::get<nolk::Weights>(a[3]).inChannels, x);
            if (dilation.h != 1 || dilation.w != 1)
                warn(operation, "dilation enlarges the output, but is not carried out");
            return;
        }
        case kCodeOf<&operation::fullConnect>: {
            const auto& w = std::get<SharedWeights>(a[0]).weights;
            checkChannels(operation, productOf({w.groups, productOf({w.inChannels, w.kernelH, w.kernelW})}), x);
            if (x.h != 1 || x.w != 1)
                warn(operation, "rows and columns of the input should be 1, are " + extentsText(x.h, x.w));
            return;
        }
        case kCodeOf<&Builder::batchNormalize>:
            return checkVariance(operation, std::get<nolk::Vector>(a[3]), std::get<float>(a[4]), x);
        case kCodeOf<&Builder::transpose>:
            return checkPermutation(operation, std::get<nolk::Perm>(a[0]), x);
        case kCodeOf<&Builder::slice>:
            return checkSlice(operation, std::get<nolk::SlicePos>(a[0]), x);
        case kCodeOf<&Builder::softmax>:
            return checkEnum(operation, true, "axis", static_cast<int>(std::get<nolk::Axis>(a[0])), 1, 3, kUnwritten);
        case kCodeOf<&operation::concat>: {
            const int axis = static_cast<int>(std::get<nolk::Axis>(a[0]));
            checkEnum(operation, true, "axis", axis, -4, 3, kUnwritten);
            return checkJoined(operation, inputs, axis < 0 ? axis + 4 : axis);
        }
        case kCodeOf<&Builder::add>:
        case kCodeOf<&Builder::sub>:
        case kCodeOf<&Builder::multiply>:
        case kCodeOf<&Builder::divide>:
        case kCodeOf<&Builder::max>:
            return checkBroadcast(operation, x, inputs[1]);
        case kCodeOf<&Builder::reshape>:
            checkEnum(operation, true, "layout", static_cast<int>(std::get<nolk::TensorLayout>(a[1])), 0, 1,
                      kUnwritten);
            return checkElements(operation, x, operation.output);
        case kCodeOf<&Builder::reduce>:
            checkEnum(operation, true, "operator", static_cast<int>(std::get<nolk::BasicOp>(a[1])), 0, 3, kUnwritten);
            return checkReduced(operation, x, operation.output);
        case kCodeOf<&Builder::clip>:
            return checkRange(operation, std::get<float>(a[0]), std::get<float>(a[1]));
        case kCodeOf<&Builder::lstm>:
            if (x.c != 1)
                reportShapes(operation, x.c > 1 && elementsOf(operation.output) > 0,
                             "the input should have 1 channel, has " + grouped(x.c));
            return checkEnum(operation, false, "direction",
                             static_cast<int>(std::get<nolk::LstmWeights>(a[0]).direction), 0, 2,
                             "it is taken for forward");
        case kCodeOf<&Builder::resize>:
            checkEnum(operation, false, "trans mode", static_cast<int>(std::get<nolk::ResizeTransMode>(a[2])), 0, 1,
                      "it is taken for align corners");
            [[fallthrough]];
        case kCodeOf<&operation::resizeAligned>:
            checkEnum(operation, true, "mode", static_cast<int>(std::get<nolk::ResizeMode>(a[1])), 1, 2,
                      "running it ends the process");
            return checkResized(operation, std::get<nolk::ResizeMode>(a[1]), x, operation.output);
        case kCodeOf<&Builder::matMul>:
            return checkProduct(operation, x, inputs[1]);
        default:
            return;
    }
}

bool isView(const Call& call) {
    return call.operation.code == kCodeOf<&Builder::reshape> &&
           std::get<nolk::TensorLayout>(call.arguments[1]) == nolk::TensorLayout::nchw;
}

std::string viewProblem(bool isInputConstant, int inputUses, int inputId) {
    if (isInputConstant) return "layout nchw copies nothing, so its input must not be a constant";
    if (inputUses <= 1) return {};
    return "layout nchw copies nothing, so its input must have no other use, but id " + std::to_string(inputId) +
           " is used " + std::to_string(inputUses) + " times";
}
