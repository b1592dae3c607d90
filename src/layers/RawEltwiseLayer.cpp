#include "layers/RawEltwiseLayer.h"

#include <algorithm>

#include "builder/shapes.h"
#include "math/blas.h"
#include "math/elements.h"

namespace {

float larger(float a, float b) { return a > b ? a : b; }

void maxArrays(int n, float* out, const float* a, const float* b) {
    mapElements(n, out, a, b, [](float x, float y) { return larger(x, y); });
}

void maxScalar(int n, float* out, const float* a, float b) {
    mapElements(n, out, a, [b](float x) { return larger(x, b); });
}

}  // namespace

// In the order of EltwiseType.
const RawEltwiseLayer::Operation RawEltwiseLayer::kOperations[] = {
    {vectorAdd, vectorAdd}, {vectorSub, vectorSub}, {vectorMul, vectorMul},
    {vectorDiv, vectorDiv}, {maxArrays, maxScalar},
};

RawEltwiseLayer::RawEltwiseLayer(nolk::Tensor a, nolk::Tensor b, nolk::Tensor output, EltwiseType type)
    : a_(a), b_(b), output_(output), type_(type), countB_(elementCount(b.shape)) {
    desc = "eltwise";
}

void RawEltwiseLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& a = a_.shape;
    const nolk::TensorShape& b = b_.shape;
    // A layer cannot report anything to the caller of run, so an unknown type leaves the output unchanged.
    if (type_ < ELTWISE_ADD || type_ > ELTWISE_MAX) return;
    // An empty tensor may have other extents that are too large to loop over.
    if (elementCount(a) == 0) return;
    const Operation& operation = kOperations[type_];
    // A maximum does not use broadcastChannel. It indexes b by b's own extents, even if b has several channels but not
    // as many as a.
    if (type_ == ELTWISE_MAX) return binary(operation);
    if (b.c == a.c && b.h == 1 && b.w == 1) return broadcastSpace(operation);
    if (b.c != a.c && b.w == a.w && b.h == a.h) return broadcastChannel(operation);
    binary(operation);
}

void RawEltwiseLayer::broadcastSpace(const Operation& operation) const {
    const nolk::TensorShape& a = a_.shape;
    const int plane = a.h * a.w;
    for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(a.n) * a.c; ++i)
        operation.scalar(plane, output_.data + i * plane, a_.data + i * plane, elementOfB(i));
}

void RawEltwiseLayer::broadcastChannel(const Operation& operation) const {
    const nolk::TensorShape& a = a_.shape;
    const int plane = a.h * a.w;
    std::ptrdiff_t at = 0;
    for (int n = 0; n < a.n; ++n)
        for (int c = 0; c < a.c; ++c, at += plane) combine(operation, plane, at, static_cast<std::int64_t>(n) * plane);
}

void RawEltwiseLayer::binary(const Operation& operation) const {
    const nolk::TensorShape& a = a_.shape;
    const nolk::TensorShape& b = b_.shape;
    if (sameShape(a, b)) return operation.arrays(elementCount(a), output_.data, a_.data, b_.data);

    std::ptrdiff_t at = 0;
    for (std::int64_t n = 0; n < a.n; ++n)
        for (int c = 0; c < a.c; ++c)
            for (int h = 0; h < a.h; ++h, at += a.w) {
                const std::int64_t channel = n * b.c + (b.c == 1 ? 0 : c);
                const std::int64_t row = (channel * b.h + (b.h == 1 ? 0 : h)) * b.w;
                if (b.w == 1)
                    operation.scalar(a.w, output_.data + at, a_.data + at, elementOfB(row));
                else
                    combine(operation, a.w, at, row);
            }
}

// Combines n elements of a from `at` with elements of b from atB. Elements beyond the end of b count as 0.
void RawEltwiseLayer::combine(const Operation& operation, int n, std::ptrdiff_t at, std::int64_t atB) const {
    const int present = atB < 0 ? 0 : static_cast<int>(std::clamp<std::int64_t>(countB_ - atB, 0, n));
    if (present > 0) operation.arrays(present, output_.data + at, a_.data + at, b_.data + atB);
    if (present < n) operation.scalar(n - present, output_.data + at + present, a_.data + at + present, 0.0f);
}

// An index is negative only if b has negative extents and therefore no elements.
float RawEltwiseLayer::elementOfB(std::int64_t at) const { return at >= 0 && at < countB_ ? b_.data[at] : 0.0f; }
