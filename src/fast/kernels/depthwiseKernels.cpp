#include <utility>

#include "fast/kernels/levelKernels.h"
#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {
namespace {

// sums[pixel] += x[pixel * step] * weight
template <int kPixels>
void addTap(const float* x, std::ptrdiff_t step, Vector weight, Vector (&sums)[kPixels]) {
    NOLK_UNROLL
    for (int p = 0; p < kPixels; ++p) sums[p] = fma(load(x + p * step), weight, sums[p]);
}

// Sums of one block for neighbouring pixels, for as many tiles of kPixels as asked for. kKernel and kStride are 0 for
// those that are known only at run time.
template <int kPixels, int kKernel, int kStride>
void depthwiseTiles(const FastDepthwise& call, const float* x, const float* bias, float* y, const float* added,
                    int tiles) {
    const std::ptrdiff_t xRow = call.xRow, step = (kStride ? kStride : call.strideW) * kFastBlock;
    const Vector low = broadcast(call.low), high = broadcast(call.high);
    for (int lane = 0; lane < kFastBlock; lane += kLanes)
        for (int t = 0; t < tiles; ++t) {
            const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(t) * kPixels;
            const float* const from = x + first * step + lane;
            const float* const weights = call.weights + lane;
            Vector sums[kPixels];
            NOLK_UNROLL
            for (int p = 0; p < kPixels; ++p) sums[p] = load(bias + lane);
            if constexpr (kKernel > 0) {
                NOLK_UNROLL
                for (int kh = 0; kh < kKernel; ++kh) NOLK_UNROLL
                for (int kw = 0; kw < kKernel; ++kw)
                    addTap(from + kh * xRow + kw * kFastBlock, step, load(weights + (kh * kKernel + kw) * kFastBlock),
                           sums);
            } else {
                for (int kh = 0; kh < call.kernelH; ++kh)
                    for (int kw = 0; kw < call.kernelW; ++kw)
                        addTap(from + kh * call.dilationH * xRow + kw * call.dilationW * kFastBlock, step,
                               load(weights + (kh * call.kernelW + kw) * kFastBlock), sums);
            }
            NOLK_UNROLL
            for (int p = 0; p < kPixels; ++p) {
                const std::ptrdiff_t at = (first + p) * kFastBlock + lane;
                if (added) sums[p] += load(added + at);
                store(y + at, smallerOr(high, largerOr(low, sums[p])));
            }
        }
}

using DepthwiseTiles = void (*)(const FastDepthwise&, const float*, const float*, float*, const float*, int);

constexpr int kMostDepthwisePixels = kLanes == 8 ? 6 : 8;

template <int kKernel, int kStride, int... kPixels>
DepthwiseTiles depthwiseTilesOf(int pixels, std::integer_sequence<int, kPixels...>) {
    static constexpr DepthwiseTiles tiles[] = {nullptr, depthwiseTiles<kPixels + 1, kKernel, kStride>...};
    return tiles[pixels];
}

DepthwiseTiles depthwiseTilesOf(const FastDepthwise& call, int pixels) {
    constexpr auto kAll = std::make_integer_sequence<int, kMostDepthwisePixels>();
    const bool dense = call.kernelH == call.kernelW && call.dilationH == 1 && call.dilationW == 1;
    if (dense && call.kernelH == 3 && call.strideW == 1) return depthwiseTilesOf<3, 1>(pixels, kAll);
    if (dense && call.kernelH == 3 && call.strideW == 2) return depthwiseTilesOf<3, 2>(pixels, kAll);
    if (dense && call.kernelH == 5 && call.strideW == 1) return depthwiseTilesOf<5, 1>(pixels, kAll);
    if (dense && call.kernelH == 5 && call.strideW == 2) return depthwiseTilesOf<5, 2>(pixels, kAll);
    return depthwiseTilesOf<0, 0>(pixels, kAll);
}

}  // namespace

void depthwise(const FastDepthwise& call) {
    static const float zeros[kFastBlock] = {};
    const float* const bias = call.bias ? call.bias : zeros;
    // Tiles of one size, and then tiles that are one pixel smaller.
    const int tiles = quotientUp(call.pixels, kMostDepthwisePixels), larger = quotientUp(call.pixels, tiles);
    const int smallTiles = tiles * larger - call.pixels, largeTiles = tiles - smallTiles;
    const DepthwiseTiles large = depthwiseTilesOf(call, larger), small = depthwiseTilesOf(call, larger - 1);
    for (int row = 0; row < call.rows; ++row) {
        const float* const x = call.x + static_cast<std::ptrdiff_t>(row) * call.strideH * call.xRow;
        float* const y = call.y + row * call.yRow;
        const float* const added = call.added ? call.added + row * call.addedRow : nullptr;
        large(call, x, bias, y, added, largeTiles);
        if (smallTiles == 0) continue;
        const std::ptrdiff_t done = static_cast<std::ptrdiff_t>(largeTiles) * larger;
        small(call, x + done * call.strideW * kFastBlock, bias, y + done * kFastBlock,
              added ? added + done * kFastBlock : nullptr, smallTiles);
    }
}

}  // namespace NOLK_FAST_LEVEL
