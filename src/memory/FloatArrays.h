// Float arrays that were given away, found by their addresses: whoever needs one for good takes it instead of a copy.
//   FloatArrays arrays;  float* weights = arrays.add(zeroedFloats(100));
//   FloatBuffer mine = arrays.take(weights);   // the second time null
#pragma once

#include <unordered_map>
#include <utility>

#include "memory/FloatBuffer.h"

class FloatArrays {
public:
    // Keeps the array, which does not move. Returns its start.
    float* add(FloatBuffer array) {
        float* const start = array.get();
        arrays_.emplace(start, std::move(array));
        return start;
    }

    // The array that starts there; null for one that was never added, or was taken before.
    FloatBuffer take(const float* start) {
        const auto found = arrays_.find(start);
        if (found == arrays_.end()) return nullptr;
        FloatBuffer array = std::move(found->second);
        arrays_.erase(found);
        return array;
    }

    void clear() { arrays_.clear(); }

private:
    std::unordered_map<const float*, FloatBuffer> arrays_;
};
