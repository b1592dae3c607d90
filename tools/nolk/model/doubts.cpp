#include "nolk/model/doubts.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "nolk/model/counts.h"
#include "nolk/words.h"

namespace {

void warn(NotedOperation& operation, std::string text) { operation.doubts.push_back({false, std::move(text)}); }

void warnOfShapes(NotedOperation& operation, std::string text) {
    operation.doubts.push_back({false, std::move(text), true});
}

}  // namespace

void doubtFloats(NotedOperation& operation, const char* what, const float* values, std::int64_t count) {
    if (!values) return;
    const auto strange = std::count_if(values, values + count, [](float v) { return !std::isfinite(v); });
    if (strange == 0) return;
    warn(operation, std::string(what) + ": " + grouped(strange) + " of " + grouped(count) +
                        (strange == 1 ? " is" : " are") + " not finite");
}

void doubtVector(NotedOperation& operation, const char* what, nolk::Vector vector, const nolk::TensorShape& x) {
    doubtFloats(operation, what, vector.data, std::max(vector.count, 0));
    if (vector.count > x.c)
        warnOfShapes(operation,
                     std::string(what) + " has " + counted(vector.count, "value") + " for " + counted(x.c, "channel"));
}

void doubtVariance(NotedOperation& operation, nolk::Vector variance, float epsilon, const nolk::TensorShape& x) {
    if (!variance.data) return;
    const int count = std::max(std::min(variance.count, x.c), 0);
    const auto bad =
        std::count_if(variance.data, variance.data + count, [epsilon](float v) { return v + epsilon <= 0.0f; });
    if (bad > 0) warn(operation, "variance + epsilon is not above 0 for " + counted(bad, "channel"));
}

void doubtDims(NotedOperation& operation, const char* what, nolk::DimsHW dims) {
    if (dims.h < 1 || dims.w < 1)
        warn(operation, std::string(what) + " should be at least 1, is " + std::to_string(dims.h) + " x " +
                            std::to_string(dims.w));
}

void doubtChannels(NotedOperation& operation, std::int64_t expected, const nolk::TensorShape& x) {
    if (expected != x.c)
        warnOfShapes(operation,
                     "weights are for " + counted(expected, "input channel") + ", the input has " + grouped(x.c));
}

void doubtBroadcast(NotedOperation& operation, const nolk::TensorShape& a, const nolk::TensorShape& b) {
    const auto fits = [](int mine, int other) { return other == mine || other == 1; };
    if (b.n == a.n && fits(a.c, b.c) && fits(a.h, b.h) && fits(a.w, b.w)) return;
    warnOfShapes(operation, "shapes disagree: the second input is " + shapeText(b) + ", the first " + shapeText(a));
}

void doubtJoined(NotedOperation& operation, const std::vector<nolk::TensorShape>& shapes, int axis) {
    const nolk::TensorShape& first = shapes.front();
    for (std::size_t i = 1; i < shapes.size(); ++i) {
        const nolk::TensorShape& s = shapes[i];
        const bool agrees = (axis == 0 || s.n == first.n) && (axis == 1 || s.c == first.c) &&
                            (axis == 2 || s.h == first.h) && (axis == 3 || s.w == first.w);
        if (agrees) continue;
        warnOfShapes(operation, "shapes disagree off the axis: input " + std::to_string(i) + " is " + shapeText(s) +
                                    ", the first " + shapeText(first));
        return;  // one is enough to go by
    }
}

void doubtReduced(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to) {
    const auto fits = [](int reduced, int extent) { return reduced == extent || reduced == 1; };
    if (to.n == from.n && fits(to.c, from.c) && fits(to.h, from.h) && fits(to.w, from.w)) return;
    warnOfShapes(operation, "extents should be 1 or the input's " + shapeText(from) + ", are " + shapeText(to));
}

void doubtResized(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to) {
    if (from.n == to.n && from.c == to.c) return;
    warnOfShapes(operation, "the output " + shapeText(to) + " should have the samples and channels of the input " +
                                shapeText(from));
}

void doubtProduct(NotedOperation& operation, const nolk::TensorShape& a, const nolk::TensorShape& b) {
    const auto check = [&operation](int mine, int other, const char* what, const char* counterpart) {
        if (other > mine)
            warnOfShapes(operation, "the second input has " + counted(other, what) + " for " +
                                        counted(mine, counterpart) + " of the first");
    };
    check(a.n, b.n, "sample", "sample");
    check(a.c, b.c, "channel", "channel");
    check(a.w, b.h, "row", "column");
}

void doubtElements(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to) {
    if (elementsOf(from) != elementsOf(to))
        warnOfShapes(operation, "the input " + shapeText(from) + " has " + counted(elementsOf(from), "element") +
                                    ", the output " + shapeText(to) + " has " + grouped(elementsOf(to)));
}

void doubtEnum(NotedOperation& operation, bool isError, const char* what, int value, int low, int high,
               const char* consequence) {
    if (value >= low && value <= high) return;
    operation.doubts.push_back({isError, std::string(what) + " must be " + std::to_string(low) + " to " +
                                             std::to_string(high) + ", is " + std::to_string(value) + ": " +
                                             consequence});
}
