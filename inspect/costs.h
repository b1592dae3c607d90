// Computes the cost of running an operation from its shapes.
#pragma once

#include <vector>

#include "inspect/LoggedOperation.h"

// Sets multiplyAdds, steps and scratchFloats. The operation's output must be set; inputs has a shape for each input.
//   convolve     n * groups * outChannels * outH * outW * inChannels * kernelH * kernelW
//   deConvolve   n * c * h * w * outChannels * kernelH * kernelW
//   fullConnect  n * groups * outChannels * (c / groups), even if there are weights for more inputs
//   matMul       n * c * h * w * b.w
//   lstm         n * c * h * directions * 4 * hiddenSize * (inputSize + hiddenSize)
// Shapes may be impossible: a negative extent counts as 0, and counts stop at 2^63 - 1.
void addCosts(LoggedOperation& operation, const Call& call, const std::vector<nolk::TensorShape>& inputs);
