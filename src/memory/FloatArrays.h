// Float arrays that the caller has handed over, found by their addresses. A layer that needs one for itself takes it
// instead of copying it.
//   FloatArrays arrays;  float* weights = arrays.add(zeroedFloats(100));
//   FloatBuffer mine = arrays.take(weights);   // a second call gives null
#pragma once

#include <unordered_map>
#include <utility>

#include "memory/FloatBuffer.h"

class FloatArrays {
public:
    // Keeps the array, without moving its floats. Returns its start.
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
