#include "fast/placeRanges.h"

#include <cstddef>
#include <new>
#include <numeric>

namespace {

struct Interval {
    std::int64_t begin, end;
};

// Offsets that are taken: intervals in ascending order, with free floats
// between any two.
class TakenOffsets {
public:
    void add(std::int64_t begin, std::int64_t end) {
        const auto first = firstEndingFrom(begin);
        auto last = first;
        for (; last != intervals_.end() && last->begin <= end; ++last) {
            begin = std::min(begin, last->begin);
            end = std::max(end, last->end);
        }
        if (first == last) {
            intervals_.insert(first, Interval{begin, end});
        } else {
            *first = Interval{begin, end};
            intervals_.erase(first + 1, last);
        }
    }

    bool isEmpty() const { return intervals_.empty(); }

    // Goes through the intervals, from the first one that ends behind an offset.
    class Search {
    public:
        Search(TakenOffsets& taken, std::int64_t offset)
            : next_(taken.firstEndingFrom(offset + 1)), end_(taken.intervals_.end()) {}

        // The lowest offset that has so many free floats, from `offset` on, which
        // is not less than in the last call.
        std::int64_t findFree(std::int64_t offset, std::int64_t floats) {
            for (; next_ != end_ && next_->begin - offset < floats; ++next_) offset = std::max(offset, next_->end);
            return offset;
        }

    private:
        std::vector<Interval>::const_iterator next_, end_;
    };

private:
    std::vector<Interval>::iterator firstEndingFrom(std::int64_t offset) {
        return std::lower_bound(intervals_.begin(), intervals_.end(), offset,
                                [](const Interval& interval, std::int64_t o) { return interval.end < o; });
    }

    std::vector<Interval> intervals_;
};

// Finds what is taken while a range is needed, without looking at each range that has been placed. A binary tree over
// the nodes of the network: each of its vertices stands for some nodes in a row. A range's nodes are those of a few
// vertices, its parts. Two ranges meet if the later one begins in a part of the other.
class TakenWhile {
public:
    explicit TakenWhile(int nodes) {
        while (leaves_ < nodes + 2) leaves_ *= 2;
        parts_.resize(index(2 * leaves_));
        within_.resize(index(2 * leaves_));
    }

    void add(const FastRange& range) {
        const std::int64_t end = range.offset + range.size;
        forEachAt(range.first, [&](int vertex) { within_[index(vertex)].add(range.offset, end); });
        forEachPart(range, [&](int vertex) {
            parts_[index(vertex)].add(range.offset, end);
            // Not necessary, but it joins intervals, and a search is shorter.
            within_[index(vertex)].add(range.offset, end);
        });
    }

    // The lowest free offset for the range, from `offset` on.
    std::int64_t findFree(const FastRange& range, std::int64_t offset) {
        searches_.clear();
        const auto search = [&](TakenOffsets& taken) {
            if (!taken.isEmpty()) searches_.emplace_back(taken, offset);
        };
        forEachPart(range, [&](int vertex) { search(within_[index(vertex)]); });
        forEachAt(range.first, [&](int vertex) { search(parts_[index(vertex)]); });
        // Until no set of offsets moves it.
        for (std::int64_t previous = -1; previous != offset;) {
            previous = offset;
            for (TakenOffsets::Search& next : searches_) offset = next.findFree(offset, range.size);
        }
        return offset;
    }

private:
    static std::size_t index(int i) { return static_cast<std::size_t>(i); }
    int leafOf(int node) const { return leaves_ + node + 1; }

    // The first and the last node are parts of their own: many ranges often begin or end at one node.
    template <typename F>
    void forEachPart(const FastRange& range, F f) const {
        int left = leafOf(range.first), right = leafOf(range.last);
        f(left);
        if (left != right) f(right);
        for (; left / 2 != right / 2; left /= 2, right /= 2) {
            if (left % 2 == 0) f(left + 1);
            if (right % 2 == 1) f(right - 1);
        }
    }

    // Calls f for all vertices that stand for the node.
    template <typename F>
    void forEachAt(int node, F f) const {
        for (int vertex = leafOf(node); vertex > 0; vertex /= 2) f(vertex);
    }

    int leaves_ = 1;  // vertices from here on stand for one node each; i stands for the nodes of 2 * i and 2 * i + 1
    std::vector<TakenOffsets> parts_;   // by the ranges that have the vertex as a part
    std::vector<TakenOffsets> within_;  // by these, and those that begin at one of its nodes
    std::vector<TakenOffsets::Search> searches_;
};

}  // namespace

FastPeak peakOf(const std::vector<FastRange>& ranges, int nodes) {
    std::vector<std::int64_t> change(static_cast<std::size_t>(nodes) + 3, 0);
    for (const FastRange& range : ranges) {
        if (!range.isPlaced()) continue;
        change[static_cast<std::size_t>(range.first) + 1] += range.size;
        change[static_cast<std::size_t>(range.last) + 2] -= range.size;
    }
    FastPeak peak;
    std::int64_t sum = 0;
    for (int node = -1; node <= nodes; ++node) {
        sum += change[static_cast<std::size_t>(node) + 1];
        if (sum > peak.floats) peak = {sum, node};
    }
    return peak;
}

std::int64_t placeRanges(std::vector<FastRange>& ranges, int nodes) {
    std::vector<std::size_t> order(ranges.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return ranges[a].size > ranges[b].size; });
    const int peak = peakOf(ranges, nodes).node;
    std::int64_t end = 0, endAtPeak = 0, sumAtPeak = 0;
    TakenWhile taken(nodes);
    for (const std::size_t i : order) {
        FastRange& range = ranges[i];
        if (!range.isPlaced()) continue;
        const bool isAtPeak = range.first <= peak && peak <= range.last;
        // If fewer floats are free at the peak, below endAtPeak, the range lies
        // behind them. None are free if all ranges meet.
        const bool isFull = isAtPeak && endAtPeak - sumAtPeak < range.size;
        range.offset = taken.findFree(range, isFull ? endAtPeak : 0);
        taken.add(range);
        end = std::max(end, range.offset + range.size);
        if (end > INT_MAX) throw std::bad_alloc();  // offsets have 32 bits
        if (!isAtPeak) continue;
        endAtPeak = std::max(endAtPeak, range.offset + range.size);
        sumAtPeak += range.size;
    }
    return end;
}
