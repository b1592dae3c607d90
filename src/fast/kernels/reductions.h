// The reductions that planes and rows have in common. Each starts from a value, adds elements to an accumulator, and
// combines two accumulators.
#pragma once

#include <limits>

#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {

struct Sum {
    static Vector start() { return broadcast(-0.0f); }  // leaves every number as it is
    static Vector add(Vector sum, Vector x) { return sum + x; }
    static Vector combine(Vector a, Vector b) { return a + b; }
};

struct SumOfSquares {
    static Vector start() { return broadcast(0.0f); }
    static Vector add(Vector sum, Vector x) { return fma(x, x, sum); }
    static Vector combine(Vector a, Vector b) { return a + b; }
};

struct SumOfSquaredDifferences {
    Vector mean;
    static Vector start() { return broadcast(0.0f); }
    Vector add(Vector sum, Vector x) const { return fma(x - mean, x - mean, sum); }
    static Vector combine(Vector a, Vector b) { return a + b; }
};

// NaN marks an accumulator without a value, so the next element replaces it.
template <typename Better>
struct Best {
    static Vector start() { return broadcast(std::numeric_limits<float>::quiet_NaN()); }
    static Vector add(Vector best, Vector x) { return select(best == best, Better::of(x, best), x); }
    static Vector combine(Vector a, Vector b) { return add(a, b); }
};
struct Larger {
    static Vector of(Vector x, Vector best) { return largerOr(x, best); }
};
struct Smaller {
    static Vector of(Vector x, Vector best) { return smallerOr(x, best); }
};

// One chain, in which NaN marks a sum without a value: the built-in layer's sum where NaN occurs.
struct RestartingSum {
    static Vector start() { return broadcast(std::numeric_limits<float>::quiet_NaN()); }
    static Vector add(Vector sum, Vector x) { return select(sum == sum, x + sum, x); }
};

}  // namespace NOLK_FAST_LEVEL
