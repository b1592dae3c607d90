#include "fast/layers/FastDeconvolutionLayer.h"

#include <algorithm>
#include <optional>

FastDeconvolutionLayer::FastDeconvolutionLayer(const FastNode& node, const FastDeconvolution& op, const FastView& input,
                                               const FastView& output, const std::vector<FastView>& views,
                                               std::ptrdiff_t scratch)
    : input_(input),
      output_(output),
      stride_(op.stride),
      rows_(phasesOf(output.shape.h, op.weights.kernelH, op.stride.h, op.padding.top)),
      columns_(phasesOf(output.shape.w, op.weights.kernelW, op.stride.w, op.padding.left)),
      epilogue_(node, views, output),
      joinsPhases_(joinsPhases(op, input.shape, output.shape) && !epilogue_.hasAdded),
      scratch_(scratch) {
    if (joinsPhases_)
        parts_.push_back(packJoined(op));
    else
        packPhases(op);
}

// All phases without kernel indices have the same parts: the bias.
void FastDeconvolutionLayer::packPhases(const FastDeconvolution& op) {
    std::optional<std::size_t> bias;
    for (const Phase& rows : rows_)
        for (const Phase& columns : columns_) {
            const bool isBias = rows.kernel.empty() || columns.kernel.empty();
            partsOfPhase_.push_back(isBias && bias ? *bias : parts_.size());
            if (isBias && bias) continue;
            if (isBias) bias = parts_.size();
            parts_.push_back(pack(op, rows, columns));
        }
}

// The lanes of one block hold [kernel row, kernel column, output channel].
bool FastDeconvolutionLayer::joinsPhases(const FastDeconvolution& op, const nolk::TensorShape& input,
                                         const nolk::TensorShape& output) {
    const nolk::Weights& w = op.weights;
    const nolk::Padding& p = op.padding;
    const bool tiles = w.kernelH == op.stride.h && w.kernelW == op.stride.w && p.top == 0 && p.left == 0 &&
                       output.h == std::int64_t{input.h} * op.stride.h &&
                       output.w == std::int64_t{input.w} * op.stride.w;
    return tiles && std::int64_t{w.kernelH} * w.kernelW * w.outChannels <= kFastBlock;
}

std::int64_t FastDeconvolutionLayer::scratchFloats(const FastDeconvolution& op, const nolk::TensorShape& input,
                                                   const nolk::TensorShape& output) {
    // One block for each input pixel of a sample.
    return joinsPhases(op, input, output) ? std::int64_t{input.h} * input.w * kFastBlock : 0;
}

FastProductParts FastDeconvolutionLayer::packJoined(const FastDeconvolution& op) const {
    const int kernel = op.weights.kernelH * op.weights.kernelW, outChannels = op.weights.outChannels;
    std::vector<std::int32_t> taps;
    for (int i = 0; i < input_.shape.c; ++i)
        taps.push_back(static_cast<std::int32_t>(i / kFastBlock * input_.strides.plane + i % kFastBlock));
    std::vector<float> weights, bias;  // [kernel row, kernel column, out, in]
    for (int k = 0; k < kernel; ++k)
        for (int o = 0; o < outChannels; ++o) {
            for (int i = 0; i < input_.shape.c; ++i)
                weights.push_back(op.weights.weight[(std::ptrdiff_t{i} * outChannels + o) * kernel + k]);
            bias.push_back(op.weights.bias ? op.weights.bias[o] : 0.0f);
        }
    nolk::Weights joined = op.weights;
    joined.groups = 1;
    joined.outChannels = kernel * outChannels;
    joined.inChannels = input_.shape.c;
    joined.kernelH = joined.kernelW = 1;
    joined.weight = weights.data();
    joined.bias = bias.data();
    return FastProductParts::pack(joined, {taps});
}

void FastDeconvolutionLayer::computeJoined(const FastRun& run, int sample, int sourceRow) const {
    FastProduct call;
    parts_.front().set(call, parts_.front().parts.front(), 0, 1);
    call.x = input_.plane(run, sample, 0) + sourceRow * input_.strides.row;
    call.xStep = input_.strides.pixel;
    call.rows = 1;
    call.pixels = input_.shape.w;
    call.lanes = kFastBlock;
    call.y = run.arena.floats.data() + scratch_ + std::ptrdiff_t{sourceRow} * input_.shape.w * kFastBlock;
    call.yStep = kFastBlock;
    call.low = epilogue_.low;
    call.high = epilogue_.high;
    run.kernels.product(call);
    for (int kh = 0; kh < stride_.h; ++kh) {
        float* y = output_.plane(run, sample, 0) + (std::ptrdiff_t{sourceRow} * stride_.h + kh) * output_.strides.row;
        for (std::ptrdiff_t pixel = 0; pixel < input_.shape.w; ++pixel) {
            const float* lane = call.y + pixel * kFastBlock + kh * stride_.w * output_.shape.c;
            for (int kw = 0; kw < stride_.w; ++kw, y += output_.strides.pixel)
                for (int o = 0; o < output_.shape.c; ++o) y[o] = *lane++;
        }
    }
}

// Position p is the sum over kernel indices k, with p + before - k = source * stride.
std::vector<FastDeconvolutionLayer::Phase> FastDeconvolutionLayer::phasesOf(int out, int kernel, int stride,
                                                                            int before) {
    std::vector<Phase> phases;
    for (int first = 0; first < std::min(stride, out); ++first) {
        Phase phase;
        phase.first = first;
        phase.positions = divideUp(out - first, stride);
        const std::int64_t nearest = std::int64_t{first} + before;
        const int smallest = static_cast<int>((nearest % stride + stride) % stride);
        for (std::int64_t k = smallest; k < kernel; k += stride) phase.kernel.push_back(static_cast<int>(k));
        phase.source = static_cast<int>((nearest - smallest) / stride);
        phases.push_back(std::move(phase));
    }
    return phases;
}

FastProductParts FastDeconvolutionLayer::pack(const FastDeconvolution& op, const Phase& rows,
                                              const Phase& columns) const {
    const nolk::Weights& w = op.weights;
    const int inChannels = input_.shape.c;
    std::vector<std::int32_t> taps;
    std::vector<float> weights;  // [out, in, kernel rows, kernel columns] of this phase
    for (int i = 0; i < inChannels; ++i)
        for (std::size_t kh = 0; kh < rows.kernel.size(); ++kh)
            for (std::size_t kw = 0; kw < columns.kernel.size(); ++kw)
                taps.push_back(static_cast<std::int32_t>(i / kFastBlock * input_.strides.plane + i % kFastBlock -
                                                         static_cast<std::ptrdiff_t>(kh) * input_.strides.row -
                                                         static_cast<std::ptrdiff_t>(kw) * input_.strides.pixel));
    weights.reserve(taps.size() * static_cast<std::size_t>(w.outChannels));
    for (int o = 0; o < w.outChannels; ++o)
        for (int i = 0; i < inChannels; ++i)
            for (const int kh : rows.kernel)
                for (const int kw : columns.kernel)
                    weights.push_back(
                        w.weight[((std::ptrdiff_t{i} * w.outChannels + o) * w.kernelH + kh) * w.kernelW + kw]);
    nolk::Weights phase = w;
    phase.groups = 1;
    phase.inChannels = inChannels;
    phase.kernelH = static_cast<int>(rows.kernel.size());
    phase.kernelW = static_cast<int>(columns.kernel.size());
    phase.weight = weights.data();
    return FastProductParts::pack(phase, {taps});
}

void FastDeconvolutionLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    if (joinsPhases_) {
        const int rows = input_.shape.h;
        for (int n = 0; n < out.n; ++n)
            run.team.forEach(rows, std::int64_t{input_.shape.w} * input_.shape.c * 4, [&](int row) {
                computeJoined(run, n, row);
                finish(run, n, 0, row * stride_.h, (row + 1) * stride_.h);
            });
        return;
    }
    const int planes = output_.strides.planes, threads = run.team.size();
    const int blocks = threads > 1 && planes >= 2 * threads ? 2 : planes;
    const int ranges = divideUp(planes, blocks);
    // A task computes some source rows of all phases, so that it finishes its output rows.
    const int sourceRows = rows_.front().positions;
    const int pieceRows = std::clamp(sourceRows / (threads > 1 ? 4 * threads : 1), 1, 16);
    const int pieces = divideUp(sourceRows, pieceRows);
    run.team.forEach(
        out.n * ranges * pieces, std::int64_t{pieceRows} * out.w * input_.shape.c * blocks * 4, [&](int task) {
            const int piece = task % pieces, range = task / pieces % ranges, sample = task / pieces / ranges;
            const int firstBlock = range * blocks, count = std::min(blocks, planes - firstBlock);
            const int first = piece * pieceRows, end = first + std::min(pieceRows, sourceRows - first);
            for (std::size_t phase = 0; phase < partsOfPhase_.size(); ++phase)
                compute(run, sample, phase, firstBlock, count, first, end);
            const auto lastRow = static_cast<int>(std::min<std::int64_t>(std::int64_t{end} * stride_.h, out.h));
            for (int block = firstBlock; block < firstBlock + count; ++block)
                finish(run, sample, block, first * stride_.h, lastRow);
        });
}

void FastDeconvolutionLayer::finish(const FastRun& run, int sample, int block, int begin, int end) const {
    epilogue_.rest.applyRows(run, sample, block, begin, end - begin);
    output_.clearBorder(output_.plane(run, sample, block), begin, end);
}

// Positions [begin, end) of one phase's rows.
void FastDeconvolutionLayer::compute(const FastRun& run, int sample, std::size_t phase, int firstBlock, int blocks,
                                     int begin, int end) const {
    const Phase& rows = rows_[phase / columns_.size()];
    const Phase& columns = columns_[phase % columns_.size()];
    const FastProductParts& parts = parts_[partsOfPhase_[phase]];
    const FastProductPart& part = parts.parts.front();
    FastProduct call;
    call.rows = std::min(end, rows.positions) - begin;
    if (call.rows < 1) return;
    call.pixels = columns.positions;
    call.xRow = input_.strides.row;
    call.xStep = input_.strides.pixel;
    call.x = input_.plane(run, sample, 0) + (rows.source + begin) * call.xRow + columns.source * call.xStep;
    parts.set(call, part, firstBlock, firstBlock + blocks);
    if (output_.layout == FastLayout::plain) call.lanes = 1;
    const auto place = [&](const FastView& view, std::ptrdiff_t& row, std::ptrdiff_t& step) {
        row = stride_.h * view.strides.row;
        step = stride_.w * view.strides.pixel;
        return view.plane(run, sample, firstBlock) +
               (rows.first + std::ptrdiff_t{begin} * stride_.h) * view.strides.row + columns.first * view.strides.pixel;
    };
    call.y = place(output_, call.yRow, call.yStep);
    call.yBlock = output_.strides.plane;
    if (epilogue_.hasAdded) {
        call.added = place(epilogue_.added, call.addedRow, call.addedStep);
        call.addedBlock = epilogue_.added.strides.plane;
    }
    call.low = epilogue_.low;
    call.high = epilogue_.high;
    run.kernels.product(call);
}
