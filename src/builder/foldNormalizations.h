// Folds batch normalisations, y = factor * x + addend for every channel, into the weights and the bias of a
// convolution.
//   foldNormalizations({{&bn, true}, {&other, false}}, weights, hasBias, bias);
// One before the convolution, conv(factor * x + addend), multiplies each weight by the factor of its input channel, and
// adds the sum of weight * addend to the bias. One behind it, factor * conv(x) + addend, multiplies weights and bias by
// the factor of their output channel, and adds its addend to the bias. They are folded in their order, each with its
// own rounding, but each weight is visited once for all of them: a small file can declare thousands of normalisations
// and millions of weights.
#pragma once

#include <nolk.h>

#include <vector>

class BatchNormalizationLayerFactory;

struct NormalizationToFold {
    const BatchNormalizationLayerFactory* normalization;  // borrowed
    bool isBefore;                                        // the convolution
};

// Changes weights.weight, and bias, which has a value for each output channel, or none if no bias is used. Without
// hasBias these values are 0, and the first factor does not apply to them. The vectors of the normalisations must have
// values for all channels that are used, and several groups must not share their weights.
void foldNormalizations(const std::vector<NormalizationToFold>& normalizations, const nolk::Weights& weights,
                        bool hasBias, std::vector<float>& bias);
