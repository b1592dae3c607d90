// Compares planning an arena of 400 MB with writing each of its floats once. A planner that marks taken floats in the
// arena itself would need longer than that.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "benches.h"
#include "compare.h"
#include "memory/MemoryPool.h"

namespace {

constexpr int kRanges = 300;
constexpr int kStep = 220000;  // floats
constexpr int kArena = 100000000;

// Reserves ranges of five sizes. From the third on, every second step frees the range before the last, which leaves
// holes for smaller ranges.
void plan() {
    MemoryPool pool(16);
    std::vector<MemoryPoolMem> ranges;
    for (int i = 0; i < kRanges; ++i) {
        ranges.push_back(pool.malloc(kStep * (1 + i * 7 % 5)));
        if (i % 2 == 0 && i >= 2) pool.free(ranges[static_cast<std::size_t>(i) - 2]);
    }
    if (!pool.locate(0) || pool.size() < kArena) {
        std::fprintf(stderr, "the arena has %d floats only\n", pool.size());
        std::exit(1);
    }
}

void fill() { std::vector<float> arena(kArena, 1.0f); }

}  // namespace

void comparePlanning() { compare("plan 300 ranges, 400 MB / write them once", {plan, nullptr}, {fill, nullptr}, 0); }
