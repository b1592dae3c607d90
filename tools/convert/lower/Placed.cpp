#include "convert/lower/Placed.h"

#include <algorithm>
#include <deque>
#include <map>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace convert {

namespace {

using Order = std::vector<int>;

std::size_t factorCount(const Placed& x) {
    std::size_t count = 0;
    for (const auto& axis : x.axes) count += axis.size();
    return count;
}

// Places in ONNX's order.
Order placesOf(const Placed& x) {
    Order places;
    for (const auto& axis : x.axes)
        for (const Factor& factor : axis) places.push_back(factor.place);
    return places;
}

std::int64_t product(const std::vector<std::int64_t>& extents, std::size_t begin, std::size_t end) {
    std::int64_t result = 1;
    for (std::size_t i = begin; i < end; ++i) result *= extents[i];
    return result;
}

int asInt(std::int64_t extent) {
    if (extent > INT32_MAX) throw std::out_of_range("an extent of " + std::to_string(extent));
    return static_cast<int>(extent);
}

// One transposition: blocks of neighbouring places [0, i), [i, j), [j, k), [k, count) in memory, as c, h and w.
struct Move {
    std::size_t cuts[2];
    int perm[3];  // of the three blocks
};

Order moved(const Order& order, const Move& move) {
    const std::size_t cuts[] = {0, move.cuts[0], move.cuts[1], order.size()};
    Order result;
    for (const int block : move.perm)
        result.insert(result.end(), order.begin() + static_cast<std::ptrdiff_t>(cuts[block]),
                      order.begin() + static_cast<std::ptrdiff_t>(cuts[block + 1]));
    return result;
}

// The fewest transpositions of three blocks that bring 0, 1, 2, ... into the wanted order. Moves that leave the last
// block where it is copy whole rows, so they are tried first.
std::vector<Move> fewestMoves(const Order& start, const Order& wanted) {
    const std::size_t count = wanted.size();
    std::vector<Move> possible;
    for (const auto& perm : {Order{1, 0, 2}, Order{0, 2, 1}, Order{2, 1, 0}, Order{1, 2, 0}, Order{2, 0, 1}})
        for (std::size_t i = 0; i <= count; ++i)
            for (std::size_t j = i; j <= count; ++j) possible.push_back({{i, j}, {perm[0], perm[1], perm[2]}});
    std::map<Order, std::pair<Order, Move>> from;
    std::deque<Order> pending{start};
    while (!pending.empty() && from.find(wanted) == from.end() && start != wanted) {
        const Order order = pending.front();
        pending.pop_front();
        for (const Move& move : possible) {
            const Order next = moved(order, move);
            if (next != start && from.emplace(next, std::make_pair(order, move)).second) pending.push_back(next);
        }
    }
    std::vector<Move> moves;
    for (Order order = wanted; order != start; order = from.at(order).first) moves.push_back(from.at(order).second);
    std::reverse(moves.begin(), moves.end());
    return moves;
}

// Transpositions that put one run of blocks after the other in its place, at most two for each: for orders of which
// there are too many to search through.
std::vector<Move> simpleMoves(Order order, const Order& wanted) {
    std::vector<Move> moves;
    const auto carryOut = [&](const Move& move) {
        moves.push_back(move);
        order = moved(order, move);
    };
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const auto p = static_cast<std::size_t>(std::find(order.begin(), order.end(), wanted[i]) - order.begin());
        std::size_t length = 1;
        while (p + length < order.size() && order[p + length] == wanted[i + length]) ++length;
        if (p == i) continue;
        if (p + length == order.size()) {
            carryOut({{i, p}, {0, 2, 1}});
            continue;
        }
        carryOut({{p, p + length}, {1, 0, 2}});                  // the run goes to the front,
        if (i > 0) carryOut({{length, length + i}, {1, 0, 2}});  // and what is in its place already before it
    }
    return moves;
}

std::vector<Move> movesTo(const Order& wanted) {
    Order start(wanted.size());
    std::iota(start.begin(), start.end(), 0);
    constexpr std::size_t kMostSearched = 6;
    return wanted.size() <= kMostSearched ? fewestMoves(start, wanted) : simpleMoves(start, wanted);
}

int carriedOut(Program& program, int step, std::vector<std::int64_t> extents, const Order& wanted) {
    Order order(extents.size());
    std::iota(order.begin(), order.end(), 0);
    for (const Move& move : movesTo(wanted)) {
        std::vector<std::int64_t> current;
        for (const int i : order) current.push_back(extents[static_cast<std::size_t>(i)]);
        const nolk::TensorShape shape{1, asInt(product(current, 0, move.cuts[0])),
                                      asInt(product(current, move.cuts[0], move.cuts[1])),
                                      asInt(product(current, move.cuts[1], current.size())), 3};
        step =
            program.transpose(program.view(step, shape), {{0, move.perm[0] + 1, move.perm[1] + 1, move.perm[2] + 1}});
        order = moved(order, move);
    }
    return step;
}

// Neighbours in memory that stay neighbours in the same order are moved as one.
int movedStep(Program& program, const Placed& x, const Order& order) {
    const std::vector<std::int64_t> memory = x.memory();
    std::vector<int> blockOf(memory.size(), 0);
    std::vector<int> position(memory.size(), 0);
    for (std::size_t i = 0; i < order.size(); ++i) position[static_cast<std::size_t>(order[i])] = static_cast<int>(i);
    std::vector<std::int64_t> extents;
    for (std::size_t i = 0; i < memory.size(); ++i) {
        if (i > 0 && position[i] == position[i - 1] + 1)
            extents.back() *= memory[i];
        else
            extents.push_back(memory[i]);
        blockOf[i] = static_cast<int>(extents.size()) - 1;
    }
    Order blocks;
    for (const int place : order) {
        const int block = blockOf[static_cast<std::size_t>(place)];
        if (blocks.empty() || blocks.back() != block) blocks.push_back(block);
    }
    return carriedOut(program, x.step, extents, blocks);
}

}  // namespace

Dims Placed::dims() const {
    Dims result;
    for (const auto& axis : axes) {
        result.push_back(1);
        for (const Factor& factor : axis) result.back() *= factor.extent;
    }
    return result;
}

std::vector<std::int64_t> Placed::memory() const {
    std::vector<std::int64_t> extents(factorCount(*this), 1);
    for (const auto& axis : axes)
        for (const Factor& factor : axis) extents[static_cast<std::size_t>(factor.place)] = factor.extent;
    return extents;
}

Placed placed(int step, const Dims& dims) {
    Placed x;
    x.step = step;
    int place = 0;
    for (const std::int64_t extent : dims) {
        x.axes.emplace_back();
        if (extent != 1) x.axes.back().push_back({extent, place++});
    }
    return x;
}

std::optional<Placed> reshaped(const Placed& x, const Dims& dims) {
    struct Piece {
        std::int64_t extent;
        int place;  // of the factor that it is cut from
        int part;   // 0 for the slowest part
    };
    std::vector<Piece> rest;  // fastest first
    for (auto axis = x.axes.rbegin(); axis != x.axes.rend(); ++axis)
        for (auto factor = axis->rbegin(); factor != axis->rend(); ++factor)
            rest.push_back({factor->extent, factor->place, 0});
    std::vector<std::vector<Piece>> axes;
    for (const std::int64_t extent : dims) {
        axes.emplace_back();
        std::int64_t left = extent;
        while (left > 1) {
            if (rest.empty()) return std::nullopt;
            Piece& piece = rest.back();
            if (left % piece.extent == 0) {
                left /= piece.extent;
                axes.back().push_back(piece);
                rest.pop_back();
            } else if (piece.extent % left == 0) {
                axes.back().push_back({left, piece.place, piece.part});
                piece.extent /= left;
                ++piece.part;
                left = 1;
            } else {
                return std::nullopt;
            }
        }
    }
    if (!rest.empty()) return std::nullopt;
    std::vector<std::pair<int, int>> sorted;
    for (const auto& axis : axes)
        for (const Piece& piece : axis) sorted.emplace_back(piece.place, piece.part);
    std::sort(sorted.begin(), sorted.end());
    Placed result;
    result.step = x.step;
    for (const auto& axis : axes) {
        result.axes.emplace_back();
        for (const Piece& piece : axis) {
            const auto found = std::lower_bound(sorted.begin(), sorted.end(), std::make_pair(piece.place, piece.part));
            result.axes.back().push_back({piece.extent, static_cast<int>(found - sorted.begin())});
        }
    }
    return result;
}

Placed reshapedAlways(Program& program, const Placed& x, const Dims& dims) {
    if (std::optional<Placed> result = reshaped(x, dims)) return *result;
    return placed(inOrder(program, x).step, dims);
}

Placed permuted(const Placed& x, const std::vector<int>& perm) {
    Placed result;
    result.step = x.step;
    for (const int axis : perm) result.axes.push_back(x.axes.at(static_cast<std::size_t>(axis)));
    return result;
}

bool isInOrder(const Placed& x) {
    const Order places = placesOf(x);
    return std::is_sorted(places.begin(), places.end());
}

Placed reordered(Program& program, const Placed& x, const std::vector<int>& order) {
    Placed result = x;
    std::vector<int> position(order.size(), 0);
    for (std::size_t i = 0; i < order.size(); ++i) position[static_cast<std::size_t>(order[i])] = static_cast<int>(i);
    for (auto& axis : result.axes)
        for (Factor& factor : axis) factor.place = position[static_cast<std::size_t>(factor.place)];
    result.step = movedStep(program, x, order);
    return result;
}

Placed inOrder(Program& program, const Placed& x) {
    return placed(isInOrder(x) ? x.step : movedStep(program, x, placesOf(x)), x.dims());
}

int arranged(Program& program, const Placed& x, const std::vector<Axes>& groups) {
    Order order;
    std::int64_t extents[3] = {1, 1, 1};
    std::size_t at = 3 - groups.size();
    for (const Axes& group : groups) {
        for (const int axis : group)
            for (const Factor& factor : x.axes.at(static_cast<std::size_t>(axis))) {
                order.push_back(factor.place);
                extents[at] *= factor.extent;
            }
        ++at;
    }
    if (order.size() != factorCount(x)) throw std::logic_error("an axis is in no group");
    const int step = std::is_sorted(order.begin(), order.end()) ? x.step : movedStep(program, x, order);
    return program.view(step, {1, asInt(extents[0]), asInt(extents[1]), asInt(extents[2]), 3});
}

std::optional<Placed> refined(const Placed& x, std::size_t axis, const std::vector<std::int64_t>& extents) {
    Dims dims;
    for (std::size_t i = 0; i < x.rank(); ++i) {
        if (i == axis)
            dims.insert(dims.end(), extents.begin(), extents.end());
        else
            for (const Factor& factor : x.axes[i]) dims.push_back(factor.extent);
    }
    const std::optional<Placed> cut = reshaped(x, dims);
    if (!cut) return std::nullopt;
    Placed result;
    result.step = x.step;
    std::size_t next = 0;
    for (std::size_t i = 0; i < x.rank(); ++i) {
        result.axes.emplace_back();
        for (std::size_t k = 0; k < (i == axis ? extents.size() : x.axes[i].size()); ++k, ++next)
            for (const Factor& factor : cut->axes[next]) result.axes.back().push_back(factor);
    }
    return result;
}

namespace {

std::optional<nolk::Axis> lineOf(const nolk::TensorShape& shape, std::int64_t before, std::int64_t extent) {
    if (before == 1 && shape.c == extent) return nolk::Axis::c;
    if (before == shape.c && shape.h == extent) return nolk::Axis::h;
    if (before == std::int64_t{shape.c} * shape.h && shape.w == extent) return nolk::Axis::w;
    return std::nullopt;
}

}  // namespace

Along along(Program& program, const Placed& x, std::size_t axis, LineForm form) {
    Along result;
    result.axis = axis;
    result.x = x;
    const std::vector<Factor>& factors = x.axes.at(axis);
    bool areNeighbours = true;
    for (std::size_t i = 1; i < factors.size(); ++i)
        areNeighbours = areNeighbours && factors[i].place == factors[i - 1].place + 1;
    if (!areNeighbours) result.x = inOrder(program, x);

    // The axis's factors become one; without any, the axis comes first.
    const std::vector<Factor> own = result.x.axes[axis];
    const int first = own.empty() ? 0 : own.front().place;
    const auto removed = static_cast<int>(own.size());
    const std::vector<std::int64_t> memory = result.x.memory();
    for (std::size_t i = 0; i < result.x.rank(); ++i) {
        if (i == axis) continue;
        for (Factor& factor : result.x.axes[i])
            if (factor.place >= first) factor.place += 1 - removed;
    }
    std::int64_t extent = 1;
    for (const Factor& factor : own) extent *= factor.extent;
    result.x.axes[axis] = {{extent, first}};
    const auto begin = static_cast<std::size_t>(first), end = begin + own.size();
    const std::int64_t before = product(memory, 0, begin), after = product(memory, end, memory.size());
    const nolk::TensorShape& current = program.shapeOf(result.x.step);
    const auto line = form == LineForm::any && current.dims == 3 ? lineOf(current, before, extent) : std::nullopt;
    result.line = line.value_or(nolk::Axis::h);
    result.step =
        line ? result.x.step : program.view(result.x.step, {1, asInt(before), asInt(extent), asInt(after), 3});
    return result;
}

Placed backAlong(const Program& program, const Along& along, int step) {
    Placed result = along.x;
    result.step = step;
    Factor& own = result.axes[along.axis].front();
    own.extent = extentAt(program.shapeOf(step), along.line);
    if (own.extent != 1) return result;
    // An extent of 1 has no factor.
    const int place = own.place;
    result.axes[along.axis].clear();
    for (auto& axis : result.axes)
        for (Factor& other : axis)
            if (other.place > place) --other.place;
    return result;
}

}  // namespace convert
