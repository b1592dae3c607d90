// Places all values of a network in one arena: values that live at the same time do not overlap. Larger values are
// placed first, each at the lowest offset that is free during its life. This is never smaller than the largest sum of
// values that live at the same time, which the plan states too.
#pragma once

#include <cstdint>
#include <vector>

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"

#ifdef NOLK_SEPARATE_TENSORS
// Fuzzers are built like this: no two ranges overlap, whenever they are needed, and a gap follows each of them, in
// which sanitizers notice accesses.
constexpr std::int64_t kFastGap = 4 * kFastBlock;
#endif

struct FastPlan {
    std::vector<FastView> views;          // of all values
    std::vector<std::ptrdiff_t> scratch;  // offset of each node's scratch memory
    std::int64_t floats = 0;              // size of the arena
    std::int64_t lowerBound = 0;          // of any plan
#ifdef NOLK_SEPARATE_TENSORS
    std::vector<std::int64_t> gaps;  // offsets of kFastGap floats that belong to nothing
#endif
};

// scratchFloats: what the layer of each node needs while it runs. Throws std::bad_alloc if the arena would exceed 2^31
// - 1 floats.
FastPlan planMemory(const FastGraph& graph, const std::vector<std::int64_t>& scratchFloats);
