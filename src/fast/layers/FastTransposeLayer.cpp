#include "fast/layers/FastTransposeLayer.h"

#include <cstring>

FastTransposeLayer::FastTransposeLayer(nolk::Perm perm, const FastView& input, const FastView& output)
    : input_(input), output_(output) {
    const int in[] = {input.shape.n, input.shape.c, input.shape.h, input.shape.w};
    std::ptrdiff_t strides[4] = {0, 0, 0, 1};
    for (int axis = 2; axis >= 0; --axis) strides[axis] = strides[axis + 1] * in[axis + 1];
    int last = 3;  // the place of the axis that was taken last; places are filled from the end
    bool first = true;
    for (int i = 3; i >= 0; --i) {
        const int axis = perm.axes[i];
        if (in[axis] == 1) continue;
        const bool follows = !first && strides[axis] == strides_[last] * extents_[last];
        if (!first && !follows) --last;
        if (!follows) strides_[last] = strides[axis];
        extents_[last] *= in[axis];
        first = false;
    }
}

// The two last extents are a row copy or a transposition of a matrix.
void FastTransposeLayer::run(const FastRun& run) const {
    const std::ptrdiff_t rows = extents_[2], columns = extents_[3];
    run.team.forEach(extents_[0] * extents_[1], 2 * rows * columns, [&](int task) {
        const float* const x = input_.base(run) + task / extents_[1] * strides_[0] + task % extents_[1] * strides_[1];
        float* const y = output_.base(run) + task * rows * columns;
        if (strides_[3] == 1 || columns == 1) {
            for (std::ptrdiff_t r = 0; r < rows; ++r)
                std::memcpy(y + r * columns, x + r * strides_[2], static_cast<std::size_t>(columns) * sizeof(float));
        } else if (strides_[2] == 1) {
            FastTranspose move;
            move.x = x;
            move.xRow = strides_[3];
            move.y = y;
            move.yRow = columns;
            move.rows = extents_[3];
            move.columns = extents_[2];
            run.kernels.transpose(move);
        } else {
            for (std::ptrdiff_t r = 0; r < rows; ++r)
                for (std::ptrdiff_t c = 0; c < columns; ++c) y[r * columns + c] = x[r * strides_[2] + c * strides_[3]];
        }
    });
}
