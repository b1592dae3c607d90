#include "fast/layers/FastDeconvolutionLayer.h"

#include <algorithm>

FastDeconvolutionLayer::FastDeconvolutionLayer(const FastNode& node, const FastDeconvolution& op, const FastView& input,
                                               const FastView& output, const std::vector<FastView>& views)
    : input_(input),
      output_(output),
      stride_(op.stride),
      rows_(phasesOf(output.shape.h, op.weights.kernelH, op.stride.h, op.padding.top)),
      columns_(phasesOf(output.shape.w, op.weights.kernelW, op.stride.w, op.padding.left)),
      columnPhases_(usingKernel(columns_)),
      bias_(pack(op, {}, {})),
      epilogue_(node, views, output) {
    for (const Phase& rows : rows_)
        for (const Phase& columns : columns_)
            if (!rows.kernel.empty() && !columns.kernel.empty()) parts_.push_back(pack(op, rows, columns));
}

std::size_t FastDeconvolutionLayer::usingKernel(const std::vector<Phase>& phases) {
    return static_cast<std::size_t>(
        std::count_if(phases.begin(), phases.end(), [](const Phase& phase) { return !phase.kernel.empty(); }));
}

const FastProductParts& FastDeconvolutionLayer::partsOf(const Phase& rows, const Phase& columns) const {
    if (rows.kernel.empty() || columns.kernel.empty()) return bias_;
    return parts_[rows.number * columnPhases_ + columns.number];
}

// Position p is the sum over kernel indices k, with p + before - k = source * stride.
std::vector<FastDeconvolutionLayer::Phase> FastDeconvolutionLayer::phasesOf(int out, int kernel, int stride,
                                                                            int before) {
    std::vector<Phase> phases;
    std::size_t number = 0;
    for (int first = 0; first < std::min(stride, out); ++first) {
        Phase phase;
        phase.first = first;
        phase.positions = (out - first + stride - 1) / stride;
        const int smallest = ((first + before) % stride + stride) % stride;
        for (int k = smallest; k < kernel; k += stride) phase.kernel.push_back(k);
        phase.source = (first + before - smallest) / stride;
        if (!phase.kernel.empty()) phase.number = number++;
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
    const int planes = output_.strides.planes, threads = run.team.size();
    const int blocks = threads > 1 && planes >= 2 * threads ? 2 : planes;
    const int ranges = (planes + blocks - 1) / blocks;
    // A task computes some source rows of all phases, so that it finishes its output rows.
    const int sourceRows = rows_.front().positions;
    const int pieceRows = std::clamp(sourceRows / (threads > 1 ? 4 * threads : 1), 1, 16);
    const int pieces = (sourceRows + pieceRows - 1) / pieceRows;
    run.team.forEach(out.n * ranges * pieces, [&](int task) {
        const int piece = task % pieces, range = task / pieces % ranges, sample = task / pieces / ranges;
        const int firstBlock = range * blocks, count = std::min(blocks, planes - firstBlock);
        for (std::size_t phase = 0; phase < rows_.size() * columns_.size(); ++phase)
            compute(run, sample, phase, firstBlock, count, piece * pieceRows, (piece + 1) * pieceRows);
        const int begin = piece * pieceRows * stride_.h;
        const int end = std::min((piece + 1) * pieceRows * stride_.h, out.h);
        for (int block = firstBlock; block < firstBlock + count; ++block) {
            epilogue_.rest.applyRows(run, sample, block, begin, end - begin);
            output_.clearBorder(output_.plane(run, sample, block), begin, end);
        }
    });
}

// Positions [begin, end) of one phase's rows.
void FastDeconvolutionLayer::compute(const FastRun& run, int sample, std::size_t phase, int firstBlock, int blocks,
                                     int begin, int end) const {
    const Phase& rows = rows_[phase / columns_.size()];
    const Phase& columns = columns_[phase % columns_.size()];
    const FastProductParts& parts = partsOf(rows, columns);
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
