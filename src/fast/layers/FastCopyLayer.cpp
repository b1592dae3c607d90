#include "fast/layers/FastCopyLayer.h"

#include <algorithm>
#include <cstring>

namespace {

float* planeAt(const FastView& view, float* base, int sample, int plane) {
    return base + sample * view.strides.sample + plane * view.strides.plane + view.strides.origin(view.border);
}

void copyRows(const FastView& from, const float* x, const FastView& to, float* y) {
    const std::size_t bytes = static_cast<std::size_t>(to.shape.w * to.strides.pixel) * sizeof(float);
    for (int row = 0; row < to.shape.h; ++row, x += from.strides.row, y += to.strides.row) std::memcpy(y, x, bytes);
}

}  // namespace

int planesToCopy(const FastView& from, const FastView& to) {
    return from.layout == FastLayout::plain && to.layout == FastLayout::plain ? to.shape.c : blocksOf(to.shape.c);
}

void copyPlanes(const FastKernels& kernels, const FastView& from, float* fromBase, const FastView& to, float* toBase,
                int sample, int begin, int end) {
    for (int plane = begin; plane < end; ++plane) {
        if (from.layout == to.layout) {
            float* const y = planeAt(to, toBase, sample, plane);
            copyRows(from, planeAt(from, fromBase, sample, plane), to, y);
            to.clearBorder(y, 0, to.shape.h);
            continue;
        }
        const bool toBlocks = to.layout == FastLayout::blocks;
        const FastView& plain = toBlocks ? from : to;
        const FastView& blocks = toBlocks ? to : from;
        FastRelayout call;
        call.plain = planeAt(plain, toBlocks ? fromBase : toBase, sample, plane * kFastBlock);
        call.plainPlane = plain.strides.plane;
        call.plainRow = plain.strides.row;
        call.blocks = planeAt(blocks, toBlocks ? toBase : fromBase, sample, plane);
        call.block = blocks.strides.plane;
        call.blockRow = blocks.strides.row;
        call.channels = std::min(to.shape.c - plane * kFastBlock, kFastBlock);
        call.rows = to.shape.h;
        call.pixels = to.shape.w;
        if (plain.isDense() && blocks.isDense()) {
            call.pixels *= call.rows;
            call.rows = 1;
        }
        toBlocks ? kernels.toBlocks(call) : kernels.toPlain(call);
        if (toBlocks) to.clearBorder(call.blocks, 0, to.shape.h);
    }
}

void FastCopyLayer::run(const FastRun& run) const {
    const int planes = planesToCopy(input_, output_);
    run.team.forEach(output_.shape.n * planes, 2 * output_.strides.plane, [&](int task) {
        copyPlanes(run.kernels, input_, input_.base(run), output_, output_.base(run), task / planes, task % planes,
                   task % planes + 1);
    });
}
