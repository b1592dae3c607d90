// Values that expose careless arithmetic, sprinkled over a tensor.
#pragma once

#include <limits>
#include <vector>

#include "support/values.h"

// Random values, about one in eight of them NaN, an infinity, -0, 0 or huge.
inline std::vector<float> valuesWithSpecials(std::uint32_t seed, std::size_t count) {
    const float infinity = std::numeric_limits<float>::infinity();
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, -0.0f, 0.0f, 1e38f};
    Values random(seed);
    std::vector<float> values = random.reals(count);
    for (float& v : values)
        if (random.integer(0, 7) == 0) v = specials[random.integer(0, 5)];
    return values;
}
