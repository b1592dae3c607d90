#pragma once

#include <cstdint>

class LayerFactory;

// Multiply-adds of one run of the operation, whose products with weights or with another tensor make up its work:
// convolutions (taps in the padding count as well), fully connected operations, LSTMs, matrix products. 0 for others.
// Counted as the operation is now: after fusion a convolution counts none for what it has absorbed.
std::int64_t multiplyAdds(const LayerFactory& factory);
