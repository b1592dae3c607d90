// Selects one of the matrix products that were compiled for several instruction sets.
//   product().rowRowRow(a, b, c, m, k, n);
#pragma once

#include <vector>

#include "math/Product.h"

// The products that this processor can run, from the slowest to the fastest; at least one. Thread-safe.
const std::vector<const Product*>& supportedProducts();

// The fastest of them, found at the first call, or the one that forceProduct has set.
const Product& product();

// For tests and benchmarks: makes product() return this one of supportedProducts() from now on; null restores the
// fastest.
void forceProduct(const Product* product);
