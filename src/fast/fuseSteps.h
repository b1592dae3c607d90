// The passes that leave fewer nodes, so that fewer tensors are written and read again.
//   1. x * sigmoid(x) and x * hardSigmoid(x) become one step.
//   2. An element-wise node becomes steps of the node that makes its input, or its operand, if nothing else uses that.
//   3. A multiplication of each channel by a computed factor (squeeze and excitation) in front of a 1x1 convolution is
//      left to the convolution, which multiplies its weights instead, where these are fewer than the elements.
//   4. A batch normalisation right behind a convolution, deconvolution or full connection is multiplied into the
//      weights.
#pragma once

#include "fast/FastGraph.h"

void fuseSteps(FastGraph& graph);
