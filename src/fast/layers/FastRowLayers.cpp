#include "fast/layers/FastRowLayers.h"

#include <algorithm>

#include "layers/RawReductionLayer.h"

namespace {

constexpr int kFloatsOfTask = 4096;

// Calls f(first, count) for ranges of the outer dimension, on several threads.
template <typename F>
void forOuter(const FastRun& run, const FastExtents& e, const F& f) {
    const std::int64_t floats = std::max<std::int64_t>(std::int64_t{e.extent} * e.inner, 1);
    const int count = static_cast<int>(std::clamp<std::int64_t>(kFloatsOfTask / floats, 1, e.outer));
    run.team.forEach(divideUp(e.outer, count), 2 * count * floats,
                     [&](int task) { f(task * count, std::min(count, e.outer - task * count)); });
}

int firstReduced(const nolk::TensorShape& in, const nolk::TensorShape& out) {
    return in.c != out.c ? 1 : in.h != out.h ? 2 : 3;
}

int lastReduced(const nolk::TensorShape& in, const nolk::TensorShape& out) {
    return in.w != out.w ? 3 : in.h != out.h ? 2 : 1;
}

}  // namespace

FastExtents::FastExtents(const nolk::TensorShape& shape, int first, int last) : outer(1), extent(1), inner(1) {
    const int extents[] = {shape.n, shape.c, shape.h, shape.w};
    for (int axis = 0; axis < 4; ++axis) (axis < first ? outer : axis > last ? inner : extent) *= extents[axis];
}

void FastSoftmaxLayer::run(const FastRun& run) const {
    const std::ptrdiff_t floats = std::ptrdiff_t{extents_.extent} * extents_.inner;
    forOuter(run, extents_, [&](int first, int count) {
        run.kernels.softmax({input_.base(run) + first * floats, output_.base(run) + first * floats, count,
                             extents_.extent, extents_.inner});
    });
}

FastReductionLayer::FastReductionLayer(nolk::BasicOp op, const FastView& input, const FastView& output)
    : op_(op),
      input_(input),
      output_(output),
      extents_(input.shape, firstReduced(input.shape, output.shape), lastReduced(input.shape, output.shape)) {}

void FastReductionLayer::run(const FastRun& run) const {
    const std::ptrdiff_t floats = std::ptrdiff_t{extents_.extent} * extents_.inner;
    forOuter(run, extents_, [&](int first, int count) {
        FastReduction call;
        call.op = op_;
        call.overChannels = RawReductionLayer::reducesChannelsOnly(input_.shape, output_.shape);
        call.x = input_.base(run) + first * floats;
        call.y = output_.base(run) + std::ptrdiff_t{first} * extents_.inner;
        call.outer = count;
        call.extent = extents_.extent;
        call.inner = extents_.inner;
        run.kernels.reduce(call);
    });
}

void FastL2NormalizationLayer::run(const FastRun& run) const {
    const std::ptrdiff_t floats = std::ptrdiff_t{extents_.extent} * extents_.inner;
    forOuter(run, extents_, [&](int first, int count) {
        run.kernels.normalizeL2({input_.base(run) + first * floats, output_.base(run) + first * floats, count,
                                 extents_.extent, extents_.inner});
    });
}
