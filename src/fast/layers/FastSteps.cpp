#include "fast/layers/FastSteps.h"

#include <algorithm>
#include <limits>

namespace {

// A piece of a row that stays in the nearest cache while several steps go over it.
constexpr int kPieceFloats = 4096;

}  // namespace

FastSteps::FastSteps(const std::vector<FastNodeStep>& steps, const std::vector<FastView>& views, const FastView& output)
    : output_(output) {
    for (const FastNodeStep& s : steps) {
        Step step{s.step, s.kind, {}, s.first, s.second};
        if (s.operand >= 0) step.operand = views[static_cast<std::size_t>(s.operand)];
        steps_.push_back(std::move(step));
    }
}

bool FastSteps::operandsAreDense() const {
    return std::all_of(steps_.begin(), steps_.end(),
                       [](const Step& step) { return step.kind != FastOperandKind::tensor || step.operand.isDense(); });
}

void FastSteps::set(FastStepCall& call, const Step& step, const FastRun& run, int sample, int plane, int row,
                    int pixel) const {
    const bool blocks = output_.layout == FastLayout::blocks;
    const std::ptrdiff_t channel = std::ptrdiff_t{plane} * (blocks ? kFastBlock : 1);
    call.step = step.step;
    switch (step.kind) {
        case FastOperandKind::none:
            return;
        case FastOperandKind::tensor:
            call.mode = FastOperand::elements;
            call.operand = step.operand.plane(run, sample, plane) + row * step.operand.strides.row +
                           pixel * step.operand.strides.pixel;
            return;
        case FastOperandKind::channels:
            call.mode = blocks ? FastOperand::block : FastOperand::scalar;
            call.operand = step.operand.plane(run, sample, plane);
            return;
        case FastOperandKind::sample:
            call.mode = FastOperand::scalar;
            call.operand = step.operand.plane(run, sample, 0);
            return;
        case FastOperandKind::constants:
            call.mode = blocks ? FastOperand::block : FastOperand::scalar;
            call.operand = step.first.from(channel);
            call.secondOperand = step.second.floats() > 0 ? step.second.from(channel) : nullptr;
    }
}

void FastSteps::apply(const FastRun& run, int sample, int plane, int row, int pixel, int pixels,
                      const FastView* x) const {
    const auto pixelFloats = static_cast<int>(output_.strides.pixel);
    const int most = steps_.size() > 1 ? kPieceFloats / pixelFloats : pixels;
    for (int end = pixel + pixels, count = 0; pixel < end; pixel += count) {
        count = std::min(most, end - pixel);
        FastStepCall call;
        call.count = count * pixelFloats;
        call.y = output_.plane(run, sample, plane) + row * output_.strides.row + pixel * output_.strides.pixel;
        call.x = x ? x->plane(run, sample, plane) + row * x->strides.row + pixel * x->strides.pixel : call.y;
        for (const Step& step : steps_) {
            set(call, step, run, sample, plane, row, pixel);
            run.kernels.step(call);
            call.x = call.y;
        }
    }
}

void FastSteps::applyRows(const FastRun& run, int sample, int plane, int firstRow, int rows, const FastView* x) const {
    if (steps_.empty()) return;
    const int pixels = output_.shape.w;
    if (output_.isDense() && operandsAreDense() && (!x || x->isDense()))
        return apply(run, sample, plane, firstRow, 0, rows * pixels, x);
    for (int row = firstRow; row < firstRow + rows; ++row) apply(run, sample, plane, row, 0, pixels, x);
}

void FastSteps::applyChannels(const FastRun& run, int sample, const FastView* x) const {
    FastStepCall call;
    float* const y = output_.plane(run, sample, 0);
    call.x = x ? x->plane(run, sample, 0) : y;
    for (const Step& step : steps_) {
        const auto applyTo = [&](int begin, int end, FastOperand mode) {
            set(call, step, run, sample, begin, 0, 0);
            if (step.kind != FastOperandKind::sample) call.mode = mode;
            call.y = y + begin;
            call.count = end - begin;
            run.kernels.step(call);
            call.x += call.count;
        };
        const int channels = output_.shape.c;
        const int own = step.kind == FastOperandKind::constants ? std::min(step.first.own(), channels) : channels;
        if (own > 0) applyTo(0, own, FastOperand::elements);
        if (own < channels) applyTo(own, channels, FastOperand::block);
        call.x = y;
    }
}

FastEpilogue::FastEpilogue(const FastNode& node, const std::vector<FastView>& views, const FastView& output)
    : low(-std::numeric_limits<float>::infinity()), high(std::numeric_limits<float>::infinity()) {
    auto step = node.steps.begin();
    if (step != node.steps.end() && step->step.kind == FastStepKind::add && step->kind == FastOperandKind::tensor) {
        hasAdded = true;
        added = views[static_cast<std::size_t>(step->operand)];
        ++step;
    }
    if (step != node.steps.end() && step->step.kind == FastStepKind::relu) {
        low = 0.0f;
        ++step;
    } else if (step != node.steps.end() && step->step.kind == FastStepKind::clip && !(step->step.p0 > step->step.p1)) {
        // With exchanged limits the step and the sums' limit differ.
        low = step->step.p0;
        high = step->step.p1;
        ++step;
    }
    rest = FastSteps({step, node.steps.end()}, views, output);
}
