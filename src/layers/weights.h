// What every operation with weights asks of them.
#pragma once

#include <nolk.h>

// Throws std::invalid_argument, naming the operation, for a negative dimension, more than 2^31 - 1 weights or output
// channels, and for missing weights.
void checkWeights(const char* operation, const nolk::Weights& weights);

// Floats in the weight array.
int weightCount(const nolk::Weights& weights);

// Floats in the bias array, where there is one.
int biasCount(const nolk::Weights& weights);
