#include "fast/kernels/levelKernels.h"
#include "fast/kernels/reductions.h"
#include "fast/kernels/sums.h"
#include "fast/kernels/tiles.h"

namespace NOLK_FAST_LEVEL {

namespace {

struct Maximum {
    static Vector start() { return broadcast(-1.0e37f); }
    static Vector add(Vector max, Vector x) { return largerOr(x, max); }
    static Vector finish(Vector max, float) { return max; }
};

struct Average {
    static Vector start() { return broadcast(0.0f); }
    static Vector add(Vector sum, Vector x) { return sum + x; }
    static Vector finish(Vector sum, float count) { return sum / broadcast(count); }
};

// Neighbouring output pixels whose windows are all as wide. Several of them keep the processor busy: the steps of one
// window wait for each other.
template <typename Type, int kPixels>
inline void poolPixels(const float* window, std::ptrdiff_t row, int rows, int columns, std::ptrdiff_t stride,
                       float* y) {
    Vector sums[kPixels][kParts];
    for (int p = 0; p < kPixels; ++p)
        for (int i = 0; i < kParts; ++i) sums[p][i] = Type::start();
    for (int h = 0; h < rows; ++h, window += row)
        for (int w = 0; w < columns; ++w)
            for (int p = 0; p < kPixels; ++p)
                for (int i = 0; i < kParts; ++i)
                    sums[p][i] = Type::add(sums[p][i], load(window + p * stride + w * kFastBlock + i * kLanes));
    const float count = rows > 0 && columns > 0 ? static_cast<float>(rows * columns) : 0.0f;
    for (int p = 0; p < kPixels; ++p)
        for (int i = 0; i < kParts; ++i) store(y + p * kFastBlock + i * kLanes, Type::finish(sums[p][i], count));
}

int larger(int a, int b) { return a > b ? a : b; }
int smaller(int a, int b) { return a < b ? a : b; }

// One output row, whose windows lie in `rows` rows from the one at x on.
template <typename Type>
void poolRow(const FastPool& c, const float* x, int rows, float* y) {
    constexpr int kPixels = 4;
    for (int p = 0; p < c.pixels; y += kFastBlock) {
        const std::int64_t first = std::int64_t{p} * c.stride.w - c.left;
        const std::int64_t last = first + std::int64_t{kPixels - 1} * c.stride.w;
        if (p + kPixels <= c.pixels && c.stride.w >= 0 && first >= 0 && last + c.kernel.w <= c.xPixels) {
            poolPixels<Type, kPixels>(x + first * kFastBlock, c.xRow, rows, c.kernel.w,
                                      std::ptrdiff_t{c.stride.w} * kFastBlock, y);
            p += kPixels;
            y += (kPixels - 1) * kFastBlock;
            continue;
        }
        // Wraps where the built-in layer wraps.
        const int begin = p * c.stride.w - c.left;
        const int left = larger(begin, 0), right = larger(smaller(begin + c.kernel.w, c.xPixels), left);
        poolPixels<Type, 1>(x + std::ptrdiff_t{left} * kFastBlock, c.xRow, rows, right - left, 0, y);
        ++p;
    }
}

template <typename Type>
void poolRows(const FastPool& c) {
    float* y = c.y;
    for (int i = 0; i < c.rows; ++i, y += c.yRow) {
        const int begin = (c.firstRow + i) * c.stride.h - c.top;
        const int top = larger(begin, 0), bottom = larger(smaller(begin + c.kernel.h, c.xRows), top);
        poolRow<Type>(c, c.x + top * c.xRow, bottom - top, y);
    }
}

// Adds all pixels, at lanes of a block, to the accumulators that belong to their numbers.
template <typename Reduction>
inline void addPixels(const Reduction& reduction, const float* x, std::ptrdiff_t row, int rows, int pixels,
                      Vector (&sums)[kPartialSums]) {
    int number = 0;
    const auto addOne = [&](const float* pixel) {
        sums[number] = reduction.add(sums[number], load(pixel));
        number = (number + 1) % kPartialSums;
    };
    for (int h = 0; h < rows; ++h, x += row) {
        int p = 0;
        for (; number != 0 && p < pixels; ++p) addOne(x + p * std::ptrdiff_t{kFastBlock});
        Vector kept[kPartialSums];
        for (int i = 0; i < kPartialSums; ++i) kept[i] = sums[i];
        for (; p + kPartialSums <= pixels; p += kPartialSums) {
            const float* const group = x + p * std::ptrdiff_t{kFastBlock};
            for (int i = 0; i < kPartialSums; ++i) kept[i] = reduction.add(kept[i], load(group + i * kFastBlock));
        }
        for (int i = 0; i < kPartialSums; ++i) sums[i] = kept[i];
        for (; p < pixels; ++p) addOne(x + p * std::ptrdiff_t{kFastBlock});
    }
}

// The result for the lanes at x. Rows without a gap between them count as one.
template <typename Reduction>
Vector reducePixels(const Reduction& reduction, const float* x, std::ptrdiff_t row, int rows, int pixels) {
    Vector sums[kPartialSums];
    for (Vector& sum : sums) sum = Reduction::start();
    const bool dense = row == std::ptrdiff_t{pixels} * kFastBlock;
    addPixels(reduction, x, row, dense ? 1 : rows, dense ? rows * pixels : pixels, sums);
    return combineTree(sums, reduction);
}

Vector restartingSum(const FastPlaneReduction& c, const float* x) {
    Vector sum = RestartingSum::start();
    for (int h = 0; h < c.rows; ++h, x += c.xRow)
        for (int p = 0; p < c.pixels; ++p) sum = RestartingSum::add(sum, load(x + p * std::ptrdiff_t{kFastBlock}));
    return sum;
}

bool anyNan(Vector v) {
    float lanes[kLanes];
    store(lanes, v);
    int count = 0;
    for (const float lane : lanes) count += lane != lane;
    return count != 0;
}

Vector sumPixels(const FastPlaneReduction& c, const float* x) {
    const Vector sum = reducePixels(Sum{}, x, c.xRow, c.rows, c.pixels);
    return anyNan(sum) ? select(sum == sum, sum, restartingSum(c, x)) : sum;
}

Vector reduceLanes(const FastPlaneReduction& c, const float* x) {
    switch (c.op) {
        case nolk::BasicOp::maximum:
            return reducePixels(Best<Larger>{}, x, c.xRow, c.rows, c.pixels);
        case nolk::BasicOp::minimum:
            return reducePixels(Best<Smaller>{}, x, c.xRow, c.rows, c.pixels);
        case nolk::BasicOp::mean:
            return sumPixels(c, x) / broadcast(static_cast<float>(c.rows * c.pixels));
        case nolk::BasicOp::sum:
            return sumPixels(c, x);
    }
    return broadcast(0.0f);
}

void normalizeLanes(const FastPlaneNormalization& c, int lane) {
    const float* x = c.x + lane;
    const Vector size = broadcast(static_cast<float>(c.rows * c.pixels));
    const Vector mean = reducePixels(Sum{}, x, c.xRow, c.rows, c.pixels) / size;
    const Vector squares = reducePixels(SumOfSquaredDifferences{mean}, x, c.xRow, c.rows, c.pixels);
    const Vector k = load(c.scale + lane) / squareRoot(squares / size + broadcast(c.epsilon));
    const Vector t = fma(-mean, k, load(c.bias + lane));
    float* y = c.y + lane;
    for (int h = 0; h < c.rows; ++h, x += c.xRow, y += c.yRow)
        for (std::ptrdiff_t p = 0; p < c.pixels; ++p) store(y + p * kFastBlock, fma(load(x + p * kFastBlock), k, t));
}

// a * u + b * v, products rounded.
Vector mix(Vector a, Vector u, Vector b, Vector v) { return a * u + b * v; }

// Copies, or interpolates along one of the rows alone where the other one does not exist.
void nearestRow(const FastResizeRow& c) {
    for (std::ptrdiff_t p = 0; p < c.pixels; ++p)
        for (int i = 0; i < kFastBlock; i += kLanes)
            store(c.y + p * kFastBlock + i, load(c.x0 + std::ptrdiff_t{c.left[p]} * kFastBlock + i));
}

void linearRow(const FastResizeRow& c) {
    const Vector b0 = broadcast(1.0f - c.rowWeight), b1 = broadcast(c.rowWeight), zero = broadcast(0.0f);
    for (std::ptrdiff_t p = 0; p < c.pixels; ++p) {
        const Vector a0 = broadcast(1.0f - c.columnWeight[p]), a1 = broadcast(c.columnWeight[p]);
        const std::ptrdiff_t right = std::ptrdiff_t{c.right[p]} * kFastBlock;
        for (int i = 0; i < kFastBlock; i += kLanes) {
            const auto column = [&](const float* row) {
                if (!row) return zero;
                const Vector left = c.left ? load(row + std::ptrdiff_t{c.left[p]} * kFastBlock + i) : zero;
                return mix(a0, left, a1, load(row + right + i));
            };
            store(c.y + p * kFastBlock + i, mix(b0, column(c.x0), b1, column(c.x1)));
        }
    }
}

struct BlockOfChannels {
    float* plain;
    float* block;
    int channels;
};

// Calls f(pixels of one row in both layouts, number of pixels) for all rows of all blocks. Rows without gaps count as
// one.
template <typename Function>
void forBlockRows(const FastRelayout& c, Function f) {
    const bool dense = c.plainRow == c.pixels && c.blockRow == std::ptrdiff_t{c.pixels} * kFastBlock;
    const int rows = dense ? 1 : c.rows, pixels = dense ? c.rows * c.pixels : c.pixels;
    for (std::ptrdiff_t first = 0; first < c.channels; first += kFastBlock)
        for (std::ptrdiff_t h = 0; h < rows; ++h)
            f(BlockOfChannels{c.plain + first * c.plainPlane + h * c.plainRow,
                              c.blocks + first / kFastBlock * c.block + h * c.blockRow,
                              smaller(c.channels - static_cast<int>(first), kFastBlock)},
              pixels);
}

}  // namespace

void pool(const FastPool& call) { return call.type == POOL_AVG ? poolRows<Average>(call) : poolRows<Maximum>(call); }

void reducePlane(const FastPlaneReduction& call) {
    for (int lane = 0; lane < kFastBlock; lane += kLanes) store(call.y + lane, reduceLanes(call, call.x + lane));
}

void normalizePlane(const FastPlaneNormalization& call) {
    for (int lane = 0; lane < kFastBlock; lane += kLanes) normalizeLanes(call, lane);
}

void resizeRow(const FastResizeRow& call) { return call.columnWeight ? linearRow(call) : nearestRow(call); }

// Goes along 16 pixels before the next channels, so that cache lines of the planes are read whole.
void toBlocks(const FastRelayout& call) {
    forBlockRows(call, [&call](const BlockOfChannels& b, int pixels) {
        const Transposition t{b.plain, call.plainPlane, b.channels, pixels, pixels, b.block, kFastBlock, kFastBlock};
        for (int p = 0; p < pixels; p += kFastBlock)
            for (int c = 0; c < kFastBlock; c += kTile)
                for (int q = p; q < p + kFastBlock && q < pixels; q += kTile) t.tile(c, q);
    });
}

void toPlain(const FastRelayout& call) {
    forBlockRows(call, [&call](const BlockOfChannels& b, int pixels) {
        const Transposition t{b.block, kFastBlock, pixels, b.channels, kFastBlock, b.plain, call.plainPlane, pixels};
        for (int p = 0; p < pixels; p += kFastBlock)
            for (int c = 0; c < b.channels; c += kTile)
                for (int q = p; q < p + kFastBlock && q < pixels; q += kTile) t.tile(q, c);
    });
}

}  // namespace NOLK_FAST_LEVEL
