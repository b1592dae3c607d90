// How many floats a conversion may make: constants that are computed in advance, weights that rules copy, and all
// arrays of the file that is written. A model's own weights and some more are always allowed; beyond that, a small ONNX
// file would become a huge model.
//   FloatBudget budget(floatsOfTheModel);
//   budget.require(rows * columns);  // before they are allocated
//   budget.take(rows * columns);     // when they stay
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace convert {

struct OverBudget : std::out_of_range {
    using std::out_of_range::out_of_range;
};

class FloatBudget {
public:
    FloatBudget() = default;
    explicit FloatBudget(std::int64_t ownFloats) : left_(kFree + kForEach * ownFloats) {}

    bool allows(std::int64_t count) const { return count <= left_; }

    // Throws OverBudget.
    void require(std::int64_t count) const {
        if (!allows(count))
            throw OverBudget("makes " + std::to_string(count) + " floats of weights and constants; for an ONNX file " +
                             "of this size only " + std::to_string(left_) + " more are allowed");
    }

    void take(std::int64_t count) {
        require(count);
        left_ -= count;
    }

    std::int64_t left() const { return left_; }

private:
    // Weights may be transposed, scaled and shared by operations that each get a copy.
    static constexpr std::int64_t kFree = std::int64_t{1} << 25, kForEach = 6;
    std::int64_t left_ = kFree;
};

}  // namespace convert
