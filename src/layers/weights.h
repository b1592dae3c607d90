// Checks and sizes of weights, for every operation that has some.
#pragma once

#include <nolk.h>

// Whether no dimension is negative, and there are at most 2^31 - 1 weights and output channels.
bool areCountable(const nolk::Weights& weights);

// Throws std::invalid_argument, naming the operation, if the weights are not countable, or if areRead is true and they
// are missing.
void checkWeights(const char* operation, const nolk::Weights& weights, bool areRead);

// Floats in the weight array.
int weightCount(const nolk::Weights& weights);

// Floats in the bias array, where there is one.
int biasCount(const nolk::Weights& weights);
