#pragma once

#include <vector>

// A model file in the style of a detection network for images of 3 x 640 x 1024: 284 operations, 5 MB of weights, an
// arena of 40 MB. The weights are random.
std::vector<unsigned char> detectionNetwork();
