// Places ranges of memory in one arena: those that are needed at the same time do not overlap. Larger ranges are placed
// first, each at the lowest offset that is free while it is needed.
//   std::vector<FastRange> ranges(2);  ranges[0].size = 32;  ranges[0].extend(5);
//   const std::int64_t arena = placeRanges(ranges, nodes);  // sets the offsets
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <vector>

// Floats, and the nodes during which they are needed: -1 stands for the time before the first node, the number of nodes
// for the time after the last one. A range of no floats, or that nothing needs, is not placed.
struct FastRange {
    std::int64_t size = 0;
    int first = INT_MAX, last = -1;
    std::int64_t offset = 0;

    bool isPlaced() const { return size > 0 && first <= last; }
    void extend(int node) {
        first = std::min(first, node);
        last = std::max(last, node);
    }
};

// The largest number of floats that are needed at the same time, and when that is.
struct FastPeak {
    std::int64_t floats = 0;
    int node = -1;
};
FastPeak peakOf(const std::vector<FastRange>& ranges, int nodes);

// Returns the size of the arena. Throws std::bad_alloc if it would exceed 2^31 - 1 floats. A network from a file may
// have 80,000 ranges. The time grows as n * log n if each meets few others, or if all meet at one node; if each of many
// ranges of many sizes meets a part of the others, it may grow with the square.
std::int64_t placeRanges(std::vector<FastRange>& ranges, int nodes);
