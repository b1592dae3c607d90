#include "layers/weights.h"

#include <algorithm>

#include "builder/refuse.h"
#include "builder/shapes.h"

bool areCountable(const nolk::Weights& weights) {
    const int groups = weights.shared ? 1 : weights.groups;
    return std::min({weights.groups, weights.outChannels, weights.inChannels, weights.kernelH, weights.kernelW}) >= 0 &&
           isRepresentable({1, weights.groups, weights.outChannels, 1}) &&
           isRepresentable({groups, weights.outChannels, weights.inChannels, 1}) &&
           isRepresentable({1, 1, weights.kernelH, weights.kernelW}) &&
           isRepresentable({groups * weights.outChannels, weights.inChannels, weights.kernelH, weights.kernelW});
}

void checkWeights(const char* operation, const nolk::Weights& weights, bool areRead) {
    if (!areCountable(weights))
        refuse("%s: weights must have no negative dimension and hold at most 2^31 - 1 floats, are [%d, %d, %d, %d, %d]",
               operation, weights.groups, weights.outChannels, weights.inChannels, weights.kernelH, weights.kernelW);
    if (areRead && !weights.weight && weightCount(weights) > 0)
        refuse("%s: weights expected, the pointer is null", operation);
}

int weightCount(const nolk::Weights& weights) {
    return (weights.shared ? 1 : weights.groups) * weights.outChannels * weights.inChannels * weights.kernelH *
           weights.kernelW;
}

int biasCount(const nolk::Weights& weights) {
    return weights.shared ? weights.outChannels : weights.groups * weights.outChannels;
}
