#pragma once

#include <cstdint>

class LayerFactory;

// Multiply-adds of one run of the operation, see model/multiplyAdds.h. Counted as the operation is now: after fusion a
// convolution counts none for what it has absorbed.
std::int64_t layerMultiplyAdds(const LayerFactory& factory);
