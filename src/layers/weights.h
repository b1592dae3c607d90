// What every operation with weights asks of them.
#pragma once

#include <nolk.h>

// Whether no dimension is negative, and there are at most 2^31 - 1 weights and output channels.
bool areCountable(const nolk::Weights& weights);

// Throws std::invalid_argument, naming the operation, for weights that are not countable and, where they are read, for
// missing ones.
void checkWeights(const char* operation, const nolk::Weights& weights, bool areRead);

// Floats in the weight array.
int weightCount(const nolk::Weights& weights);

// Floats in the bias array, where there is one.
int biasCount(const nolk::Weights& weights);
