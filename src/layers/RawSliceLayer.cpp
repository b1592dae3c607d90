#include "layers/RawSliceLayer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

// The indices that are taken along one axis.
struct Range {
    std::ptrdiff_t start, count, step;
    std::ptrdiff_t operator[](std::ptrdiff_t i) const { return start + i * step; }
};

Range rangeOf(const nolk::SlicePos& pos, int axis, int extent) {
    if (axis != pos.axis) return {0, extent, 1};
    if (pos.start >= pos.end) return {0, 0, 1};
    return {pos.start, (pos.end - pos.start - 1) / pos.step + 1, pos.step};
}

void takeRow(const float* in, const Range& columns, float* out) {
    if (columns.step == 1)
        std::copy_n(in + columns.start, columns.count, out);
    else
        for (std::ptrdiff_t w = 0; w < columns.count; ++w) out[w] = in[columns[w]];
}

}  // namespace

RawSliceLayer::RawSliceLayer(nolk::Tensor input, nolk::Tensor output, nolk::SlicePos pos)
    : input_(input), output_(output), pos_(pos) {
    desc = "slice";
}

void RawSliceLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& i = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    if (std::min({i.n, i.c, i.h, i.w}) < 1 || pos_.start >= pos_.end) return;
    const Range samples = rangeOf(pos_, 0, i.n), channels = rangeOf(pos_, 1, i.c), rows = rangeOf(pos_, 2, i.h),
                columns = rangeOf(pos_, 3, i.w);
    for (std::ptrdiff_t n = 0; n < samples.count; ++n)
        for (std::ptrdiff_t c = 0; c < channels.count; ++c)
            for (std::ptrdiff_t h = 0; h < rows.count; ++h) {
                const std::ptrdiff_t plane = samples[n] * i.c + channels[c];
                takeRow(input_.data + (plane * i.h + rows[h]) * i.w, columns,
                        output_.data + ((n * o.c + c) * o.h + h) * o.w);
            }
}
