// Chooses among the matrix products that the build made for several instruction sets.
//   product().rowRowRow(a, b, c, m, k, n);
#pragma once

#include <vector>

#include "math/Product.h"

// Those that this processor can run, from the slowest to the fastest; at least one. Thread-safe.
const std::vector<const Product*>& supportedProducts();

// The fastest of them, found at the first call, or what forceProduct has set.
const Product& product();

// For tests and benchmarks: products from now on are those of one of supportedProducts(); null goes back to the
// fastest.
void forceProduct(const Product* product);
