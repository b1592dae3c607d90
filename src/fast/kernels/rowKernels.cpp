#include "fast/kernels/elementary.h"
#include "fast/kernels/levelKernels.h"
#include "fast/kernels/reductions.h"
#include "fast/kernels/sums.h"
#include "fast/kernels/tiles.h"

namespace NOLK_FAST_LEVEL {

namespace {

// How the vectors of a row are read and written: whole, or the first lanes of the last one.
struct Whole {
    static Vector read(const float* p) { return load(p); }
    static void write(float* p, Vector v) { store(p, v); }
    static Vector choose(Vector inside, Vector) { return inside; }
};
struct Part {
    int lanes;
    Vector read(const float* p) const { return loadPart(p, lanes); }
    void write(float* p, Vector v) const { storePart(p, v, lanes); }
    Vector choose(Vector inside, Vector outside) const { return select(firstLanes(lanes), inside, outside); }
};

// Calls f(index, number of the vector in its block, Whole or Part) for every vector of a row. A row may have 2^31 - 1
// elements, so no index may go beyond its end.
template <typename Function>
inline void forVectors(int count, Function f) {
    const int whole = count - count % kFastBlock;
    for (int i = 0; i < whole; i += kFastBlock)
        for (int part = 0; part < kParts; ++part) f(i + part * kLanes, part, Whole{});
    for (int left = count - whole, part = 0; left > 0; left -= kLanes, ++part)
        f(count - left, part, Part{left < kLanes ? left : kLanes});
}

// A number of vectors that the compiler knows.
template <int kVectors>
struct Vectors {
    static constexpr int kCount = kVectors;
};

// Calls f(index, Whole or Part, Vectors) for strips of neighbouring columns. Several vectors at once keep the processor
// busy, because each is a chain of steps.
template <typename Function>
inline void forStrips(int columns, Function f) {
    constexpr int kVectors = 4;
    const int whole = columns - columns % (kVectors * kLanes);
    for (int i = 0; i < whole; i += kVectors * kLanes) f(i, Whole{}, Vectors<kVectors>{});
    for (int left = columns - whole; left > 0; left -= kLanes)
        f(columns - left, Part{left < kLanes ? left : kLanes}, Vectors<1>{});
}

// Reduces adjacent elements; the same result in all lanes.
template <typename Reduction>
inline Vector reduceRow(const Reduction& reduction, Vector start, const float* x, int count) {
    Vector parts[kParts];
    for (Vector& part : parts) part = start;
    forVectors(count, [&](int i, int part, auto access) {
        parts[part] = access.choose(reduction.add(parts[part], access.read(x + i)), parts[part]);
    });
    return broadcast(combineLanes(parts, reduction)[0]);
}

// Maximum or minimum that ignores NaN unless it is the first value.
template <typename Better>
struct BestFromFirst {
    static Vector add(Vector best, Vector x) { return Better::of(x, best); }
    static Vector combine(Vector a, Vector b) { return Better::of(b, a); }
};

Vector largest(const float* x, int count) { return reduceRow(BestFromFirst<Larger>{}, broadcast(*x), x, count); }

void softmaxRow(const float* x, float* y, int count) {
    const Vector max = largest(x, count);
    Vector parts[kParts];
    for (Vector& part : parts) part = broadcast(0.0f);
    forVectors(count, [&](int i, int part, auto access) {
        const Vector e = exp(access.read(x + i) - max);
        access.write(y + i, e);
        parts[part] = access.choose(parts[part] + e, parts[part]);
    });
    const Vector sum = broadcast(combineLanes(parts, Sum{})[0]);
    forVectors(count, [&](int i, int, auto access) { access.write(y + i, access.read(y + i) / sum); });
}

// A few columns, one of them in each lane.
template <typename Access, int kVectors>
inline void softmaxStrip(const float* x, float* y, int extent, std::ptrdiff_t inner, Access access, Vectors<kVectors>) {
    Vector max[kVectors], sum[kVectors];
    for (int v = 0; v < kVectors; ++v) {
        max[v] = access.read(x + v * kLanes);
        sum[v] = broadcast(0.0f);
    }
    for (std::ptrdiff_t k = 1; k < extent; ++k)
        for (int v = 0; v < kVectors; ++v) max[v] = largerOr(access.read(x + k * inner + v * kLanes), max[v]);
    for (std::ptrdiff_t k = 0; k < extent; ++k)
        for (int v = 0; v < kVectors; ++v) {
            const std::ptrdiff_t at = k * inner + v * kLanes;
            const Vector e = exp(access.read(x + at) - max[v]);
            access.write(y + at, e);
            sum[v] += e;
        }
    for (std::ptrdiff_t k = 0; k < extent; ++k)
        for (int v = 0; v < kVectors; ++v) {
            float* const place = y + k * inner + v * kLanes;
            access.write(place, access.read(place) / sum[v]);
        }
}

template <typename Access, int kVectors>
inline void normalizeL2Strip(const float* x, float* y, int extent, std::ptrdiff_t inner, Access access,
                             Vectors<kVectors>) {
    Vector norm[kVectors];
    for (Vector& n : norm) n = SumOfSquares::start();
    for (std::ptrdiff_t k = 0; k < extent; ++k)
        for (int v = 0; v < kVectors; ++v)
            norm[v] = SumOfSquares::add(norm[v], access.read(x + k * inner + v * kLanes));
    for (Vector& n : norm) n = squareRoot(n);
    for (std::ptrdiff_t k = 0; k < extent; ++k)
        for (int v = 0; v < kVectors; ++v) {
            const std::ptrdiff_t at = k * inner + v * kLanes;
            access.write(y + at, access.read(x + at) / norm[v]);
        }
}

void normalizeL2Row(const float* x, float* y, int count) {
    const Vector norm = squareRoot(reduceRow(SumOfSquares{}, SumOfSquares::start(), x, count));
    forVectors(count, [&](int i, int, auto access) { access.write(y + i, access.read(x + i) / norm); });
}

// Calls f(first element of a block [extent, inner], the same of y) for all blocks.
template <typename Call, typename Function>
inline void forOuter(const Call& c, Function f) {
    const std::ptrdiff_t size = std::ptrdiff_t{c.extent} * c.inner;
    for (std::ptrdiff_t i = 0; i < c.outer; ++i) f(c.x + i * size, c.y + i * size);
}

// A mean divides, or multiplies where the built-in layer multiplies.
Vector finish(const FastReduction& c, Vector result) {
    if (c.op != nolk::BasicOp::mean) return result;
    const auto extent = static_cast<float>(c.extent);
    return c.overChannels ? result * broadcast(1.0f / extent) : result / broadcast(extent);
}

// Results of columns are chains in the order of the extent, as in the built-in layer.
template <typename Reduction>
void reduceColumns(const FastReduction& c, const Reduction& reduction) {
    const std::ptrdiff_t inner = c.inner;
    for (std::ptrdiff_t o = 0; o < c.outer; ++o)
        forStrips(c.inner, [&](int column, auto access, auto vectors) {
            constexpr int kVectors = decltype(vectors)::kCount;
            const float* const x = c.x + o * c.extent * inner + column;
            Vector results[kVectors];
            for (int v = 0; v < kVectors; ++v) results[v] = access.read(x + v * kLanes);
            for (std::ptrdiff_t k = 1; k < c.extent; ++k)
                for (int v = 0; v < kVectors; ++v)
                    results[v] = reduction.add(results[v], access.read(x + k * inner + v * kLanes));
            for (int v = 0; v < kVectors; ++v)
                access.write(c.y + o * inner + column + v * kLanes, finish(c, results[v]));
        });
}

float restartingSum(const float* x, int count) {
    float sum = x[0];
    for (int i = 1; i < count; ++i) sum = sum != sum ? x[i] : x[i] + sum;
    return sum;
}

Vector sumRow(const FastReduction& c, const float* x) {
    const Vector sum = reduceRow(Sum{}, Sum::start(), x, c.extent);
    const bool isNan = sum[0] != sum[0];
    return isNan && !c.overChannels ? broadcast(restartingSum(x, c.extent)) : sum;
}

Vector reduceRow(const FastReduction& c, const float* x) {
    switch (c.op) {
        case nolk::BasicOp::maximum:
            return c.overChannels ? largest(x, c.extent) : reduceRow(Best<Larger>{}, broadcast(*x), x, c.extent);
        case nolk::BasicOp::minimum:
            return c.overChannels ? reduceRow(BestFromFirst<Smaller>{}, broadcast(*x), x, c.extent)
                                  : reduceRow(Best<Smaller>{}, broadcast(*x), x, c.extent);
        case nolk::BasicOp::mean:
        case nolk::BasicOp::sum:
            return sumRow(c, x);
    }
    return broadcast(0.0f);
}

void reduceColumns(const FastReduction& c) {
    switch (c.op) {
        case nolk::BasicOp::maximum:
            return c.overChannels ? reduceColumns(c, BestFromFirst<Larger>{}) : reduceColumns(c, Best<Larger>{});
        case nolk::BasicOp::minimum:
            return c.overChannels ? reduceColumns(c, BestFromFirst<Smaller>{}) : reduceColumns(c, Best<Smaller>{});
        case nolk::BasicOp::mean:
        case nolk::BasicOp::sum:
            return c.overChannels ? reduceColumns(c, Sum{}) : reduceColumns(c, RestartingSum{});
    }
}

void normalizeRow(const float* x, float* y, int count, float scale, float bias, float epsilon) {
    const Vector size = broadcast(static_cast<float>(count));
    const Vector mean = reduceRow(Sum{}, Sum::start(), x, count) / size;
    const SumOfSquaredDifferences differences{mean};
    const Vector squares = reduceRow(differences, differences.start(), x, count);
    const Vector k = broadcast(scale) / squareRoot(squares / size + broadcast(epsilon));
    const Vector t = fma(-mean, k, broadcast(bias));
    forVectors(count, [&](int i, int, auto access) { access.write(y + i, fma(access.read(x + i), k, t)); });
}

}  // namespace

void softmax(const FastSoftmax& call) {
    forOuter(call, [&call](const float* x, float* y) {
        if (call.inner == 1) return softmaxRow(x, y, call.extent);
        forStrips(call.inner, [&](int column, auto access, auto vectors) {
            softmaxStrip(x + column, y + column, call.extent, call.inner, access, vectors);
        });
    });
}

void normalizeL2(const FastL2Normalization& call) {
    forOuter(call, [&call](const float* x, float* y) {
        if (call.inner == 1) return normalizeL2Row(x, y, call.extent);
        forStrips(call.inner, [&](int column, auto access, auto vectors) {
            normalizeL2Strip(x + column, y + column, call.extent, call.inner, access, vectors);
        });
    });
}

void reduce(const FastReduction& call) {
    if (call.inner > 1) return reduceColumns(call);
    for (std::ptrdiff_t o = 0; o < call.outer; ++o)
        call.y[o] = finish(call, reduceRow(call, call.x + o * call.extent))[0];
}

void normalizeRows(const FastRowNormalization& call) {
    for (std::ptrdiff_t o = 0; o < call.outer; ++o)
        normalizeRow(call.x + o * call.extent, call.y + o * call.extent, call.extent, call.scale[o], call.bias[o],
                     call.epsilon);
}

void lstmCell(const FastLstmCell& call) {
    const float* const input = call.gates;
    const float* const output = input + call.stride;
    const float* const forget = output + call.stride;
    const float* const candidate = forget + call.stride;
    forVectors(call.count, [&](int i, int, auto access) {
        const Vector kept = sigmoid(access.read(forget + i)) * access.read(call.cell + i);
        const Vector cell = kept + sigmoid(access.read(input + i)) * tanh(access.read(candidate + i));
        access.write(call.cell + i, cell);
        access.write(call.hidden + i, sigmoid(access.read(output + i)) * tanh(cell));
    });
}

// Goes along 16 columns before the next rows, so that cache lines of x are read whole.
void transpose(const FastTranspose& call) {
    const Transposition t{call.x, call.xRow, call.rows, call.columns, call.columns, call.y, call.yRow, call.rows};
    for (int j = 0; j < call.columns; j += kFastBlock)
        for (int i = 0; i < call.rows; i += kTile)
            for (int k = j; k < j + kFastBlock && k < call.columns; k += kTile) t.tile(i, k);
}

}  // namespace NOLK_FAST_LEVEL
