#include "fast/layers/FastConvolutionLayer.h"

#include <algorithm>

#include "builder/shapes.h"

namespace {

// Input floats that should stay in the second cache while all output blocks are computed from them.
constexpr std::ptrdiff_t kCachedFloats = 64 * 1024;

// Pixels that kernels keep in registers, with 16 lanes or with fewer: 14 and 6. A task has a multiple of both, at
// least.
constexpr int kRegisterPixels = 14, kTilePixels = 84;

// Weights that each core can have in its second cache.
constexpr std::int64_t kFewWeights = 128 * 1024;

// A float that another core has computed takes as long to read as so many weights, which are fetched ahead.
constexpr std::int64_t kReuse = 16;

// The length of a piece for which the threads finish together as nearly as possible: a multiple of `unit`, and about
// `longest` at most.
int evenLength(int length, int longest, int unit, int samples, int threads) {
    constexpr int kTries = 16;
    int best = 0;
    std::int64_t least = 0;
    const int most = std::max(divideUp(longest, unit), 1);
    for (int units = most; units >= divideUp(most, 2) && units > most - kTries; --units) {
        const std::int64_t pieces = std::int64_t{samples} * divideUp(length, units * unit);
        const std::int64_t time = (pieces + threads - 1) / threads * units;
        if (best > 0 && time >= least) continue;
        best = units * unit;
        least = time;
    }
    return best;
}

// If the first output row and the last one have all kernel rows inside the input, all output rows do.
FastKernelRows kernelRowsOf(const FastConvolution& op, const nolk::TensorShape& in, const nolk::TensorShape& out) {
    const nolk::Weights& w = op.weights;
    const FastKernelRows rows{w.kernelH, w.kernelW, op.stride.h, op.dilation.h, in.h, -std::int64_t{op.padding.top}};
    const bool isAll = rows.tapsOf(0).count == rows.channelTaps() && rows.tapsOf(out.h - 1).count == rows.channelTaps();
    return isAll ? FastKernelRows() : rows;
}

}  // namespace

FastConvolutionLayer::FastConvolutionLayer(const FastNode& node, const FastConvolution& op, const FastView& input,
                                           const FastView& output, const std::vector<FastView>& views,
                                           std::ptrdiff_t scratch)
    : input_(input),
      output_(output),
      hasFactors_(op.hasFactors),
      factors_(op.hasFactors ? views[static_cast<std::size_t>(node.inputs[1])] : FastView()),
      scratch_(scratch),
      stride_(op.stride),
      window_(-op.padding.top * input.strides.row - op.padding.left * input.strides.pixel),
      parts_(FastProductParts::pack(op.weights, tapsOf(op, input))),
      weights_(static_cast<std::int64_t>(parts_.taps.front().size()) * output.strides.planes * kFastBlock),
      kernelRows_(kernelRowsOf(op, input.shape, output.shape)),
      epilogue_(node, views, output) {
    const bool pointwise =
        op.weights.kernelH == 1 && op.weights.kernelW == 1 && stride_.h == 1 && stride_.w == 1 && window_ == 0;
    joinsRows_ = pointwise && input.isDense() && output.isDense() && epilogue_.isDense();
    // A smaller part of the input would have all the weights read more often.
    const std::ptrdiff_t cached = weights_ <= kFewWeights ? kCachedFloats : 4 * kCachedFloats;
    const std::ptrdiff_t rowFloats = input.strides.row * stride_.h * input.strides.planes;
    const std::ptrdiff_t pixelFloats = input.strides.pixel * input.strides.planes;
    if (joinsRows_)
        pieceLength_ = static_cast<int>(std::max<std::ptrdiff_t>(cached / pixelFloats / kTilePixels, 1)) * kTilePixels;
    else
        pieceLength_ = static_cast<int>(std::max<std::ptrdiff_t>(cached / std::max<std::ptrdiff_t>(rowFloats, 1), 1));
}

std::int64_t FastConvolutionLayer::scratchFloats(const FastConvolution& op) {
    return std::int64_t{blocksOf(op.weights.outChannels)} * kFastBlock * op.weights.inChannels;
}

void FastConvolutionLayer::run(const FastRun& run) const {
    if (!hasFactors_) return runSamples(run, 0, output_.shape.n);
    for (int n = 0; n < output_.shape.n; ++n) {
        scaleWeights(run, n);
        runSamples(run, n, 1);
    }
}

// A 1x1 convolution of one group has one tap for each input channel.
void FastConvolutionLayer::scaleWeights(const FastRun& run, int sample) const {
    const FastProductPart& part = parts_.parts.front();
    const std::ptrdiff_t channels = input_.shape.c;
    run.team.forEach(part.blocks, channels * kFastBlock, [&](int block) {
        const float* weights = parts_.weights->data() + part.weights + block * channels * kFastBlock;
        float* scaled = run.arena.floats.data() + scratch_ + block * channels * kFastBlock;
        for (std::ptrdiff_t c = 0; c < channels; ++c, weights += kFastBlock, scaled += kFastBlock) {
            const float factor = factors_.plane(run, sample, c / kFastBlock)[c % kFastBlock];
            for (int lane = 0; lane < kFastBlock; ++lane) scaled[lane] = weights[lane] * factor;
        }
    });
}

// A thread should compute rows whose inputs it has computed before, so the plane is divided first, unless there are
// many weights, which each thread would have to read, or it does not come out even.
FastConvolutionLayer::Division FastConvolutionLayer::divide(int samples, int threads) const {
    const nolk::TensorShape& out = output_.shape;
    const int length = joinsRows_ ? out.h * out.w : out.h, planes = output_.strides.planes;
    if (threads == 1) return {joinsRows_ ? pieceLength_ : divideUp(length, divideUp(length, pieceLength_)), planes};

    const auto inPieces = [&](int pieces) {
        const int longest = std::min(pieceLength_, divideUp(length, divideUp(pieces, samples)));
        return evenLength(length, longest, joinsRows_ ? kRegisterPixels : 1, samples, threads);
    };
    int pieceLength = pieceLength_, ranges = 1;
    if (weights_ <= kFewWeights) {
        pieceLength = inPieces(4 * threads);
    } else if (weights_ <= kReuse * (std::max(elementCount(input_.shape), elementCount(out)) / out.n)) {
        const int part = inPieces(threads);
        const int partsOfThread = divideUp(samples * divideUp(length, part), threads);
        const bool isEven = std::int64_t{partsOfThread} * part * threads <= std::int64_t{samples} * length * 21 / 20;
        if (isEven) pieceLength = part;
    }
    const int pieces = samples * divideUp(length, pieceLength);
    if (pieces < threads) ranges = std::clamp(divideUp(4 * threads, pieces), 1, divideUp(planes, 2));
    if (pieces * ranges < threads) pieceLength = inPieces(4 * threads);
    return {pieceLength, divideUp(divideUp(planes, ranges), 2) * 2};
}

void FastConvolutionLayer::runSamples(const FastRun& run, int firstSample, int samples) const {
    const nolk::TensorShape& out = output_.shape;
    const int length = joinsRows_ ? out.h * out.w : out.h, planes = output_.strides.planes;
    const auto [pieceLength, blocks] = divide(samples, run.team.size());
    const int pieces = divideUp(length, pieceLength), ranges = divideUp(planes, blocks);
    const std::int64_t places = std::int64_t{pieceLength} * (joinsRows_ ? 1 : out.w);
    const auto taps = static_cast<std::int64_t>(parts_.taps.front().size());
    run.team.forEach(
        samples * pieces * ranges, taps * places * blocks * kFastBlock / 4,
        [&, pieceLength = pieceLength, blocks = blocks](int task) {
            const int firstBlock = task % ranges * blocks, begin = task / ranges % pieces * pieceLength;
            compute(run, {firstSample + task / ranges / pieces, firstBlock, std::min(firstBlock + blocks, planes),
                          begin, begin + std::min(pieceLength, length - begin)});
        });
}

void FastConvolutionLayer::compute(const FastRun& run, const Piece& piece) const {
    FastProduct call;
    call.xRow = stride_.h * input_.strides.row;
    call.xStep = stride_.w * input_.strides.pixel;
    call.x = input_.plane(run, piece.sample, 0) + window_ + piece.begin * (joinsRows_ ? call.xStep : call.xRow);
    call.rows = joinsRows_ ? 1 : piece.end - piece.begin;
    call.pixels = joinsRows_ ? piece.end - piece.begin : output_.shape.w;
    call.yBlock = output_.strides.plane;
    call.yRow = output_.strides.row;
    call.yStep = output_.strides.pixel;
    call.kernelRows = kernelRows_;
    if (!joinsRows_) call.kernelRows.top += std::int64_t{piece.begin} * stride_.h;
    call.low = epilogue_.low;
    call.high = epilogue_.high;
    const FastStrides& added = epilogue_.added.strides;
    call.addedBlock = added.plane;
    call.addedRow = added.row;
    call.addedStep = added.pixel;
    for (const FastProductPart& part : parts_.parts) {
        const int begin = std::max(part.firstBlock, piece.firstBlock) - part.firstBlock;
        const int end = std::min(part.firstBlock + part.blocks, piece.lastBlock) - part.firstBlock;
        if (begin >= end) continue;
        parts_.set(call, part, begin, end);
        if (hasFactors_)
            call.weights = run.arena.floats.data() + scratch_ + std::ptrdiff_t{begin} * call.tapCount * kFastBlock;
        const int block = part.firstBlock + begin;
        if (output_.layout == FastLayout::plain) call.lanes = 1;
        call.y = output_.plane(run, piece.sample, block) + piece.begin * (joinsRows_ ? call.yStep : call.yRow) +
                 part.firstLane;
        if (epilogue_.hasAdded)
            call.added = epilogue_.added.plane(run, piece.sample, block) +
                         piece.begin * (joinsRows_ ? call.addedStep : call.addedRow) + part.firstLane;
        run.kernels.product(call);
    }
    finish(run, piece);
}

void FastConvolutionLayer::finish(const FastRun& run, const Piece& piece) const {
    if (epilogue_.rest.empty() && output_.isDense()) return;
    for (int block = piece.firstBlock; block < piece.lastBlock; ++block) {
        if (joinsRows_) {
            if (!epilogue_.rest.empty())
                epilogue_.rest.apply(run, piece.sample, block, 0, piece.begin, piece.end - piece.begin);
            continue;
        }
        epilogue_.rest.applyRows(run, piece.sample, block, piece.begin, piece.end - piece.begin);
        output_.clearBorder(output_.plane(run, piece.sample, block), piece.begin, piece.end);
    }
}
