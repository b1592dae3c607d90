// The table of operators: what each becomes in a nolk file. A further operator is a row and a function.
#pragma once

#include <string>
#include <vector>

#include "convert/lower/NodeLowering.h"

namespace convert {

using LowerFunction = void (*)(NodeLowering&);

// Null for an operator that has no row.
LowerFunction loweringOf(const std::string& type);

// The operators that have one.
std::vector<std::string> loweredOperators();

// What a user can do; never empty. About an operator that cannot be converted,
std::string adviceFor(const std::string& type);
// about any operator that is not of ONNX's own domain,
std::string adviceForDomain();
// and about a node whose inputs do not fit.
std::string adviceForShapes(const std::string& type);

// convolution.cpp
void lowerConv(NodeLowering& n);
void lowerConvTranspose(NodeLowering& n);
// pooling.cpp
void lowerMaxPool(NodeLowering& n);
void lowerAveragePool(NodeLowering& n);
void lowerGlobalAveragePool(NodeLowering& n);
void lowerGlobalMaxPool(NodeLowering& n);
// elementwise.cpp
void lowerAdd(NodeLowering& n);
void lowerSub(NodeLowering& n);
void lowerMul(NodeLowering& n);
void lowerDiv(NodeLowering& n);
void lowerMax(NodeLowering& n);
void lowerMin(NodeLowering& n);
void lowerSum(NodeLowering& n);
void lowerMean(NodeLowering& n);
void lowerNeg(NodeLowering& n);
void lowerReciprocal(NodeLowering& n);
void lowerPow(NodeLowering& n);
void lowerSqrt(NodeLowering& n);
void lowerWhere(NodeLowering& n);
void lowerCast(NodeLowering& n);
void lowerIdentity(NodeLowering& n);
void lowerDropout(NodeLowering& n);
// activation.cpp
void lowerLeakyRelu(NodeLowering& n);
void lowerPRelu(NodeLowering& n);
void lowerHardSigmoid(NodeLowering& n);
void lowerHardSwish(NodeLowering& n);
void lowerClip(NodeLowering& n);
void lowerElu(NodeLowering& n);
void lowerSelu(NodeLowering& n);
void lowerCelu(NodeLowering& n);
void lowerSoftsign(NodeLowering& n);
void lowerSoftplus(NodeLowering& n);
void lowerErf(NodeLowering& n);
void lowerGelu(NodeLowering& n);
void lowerMish(NodeLowering& n);
void lowerSoftmax(NodeLowering& n);
void lowerLogSoftmax(NodeLowering& n);
// shapes.cpp
void lowerReshape(NodeLowering& n);
void lowerTranspose(NodeLowering& n);
void lowerConcat(NodeLowering& n);
void lowerSplit(NodeLowering& n);
void lowerSlice(NodeLowering& n);
void lowerGather(NodeLowering& n);
void lowerPad(NodeLowering& n);
void lowerExpand(NodeLowering& n);
void lowerTile(NodeLowering& n);
void lowerDepthToSpace(NodeLowering& n);
void lowerSpaceToDepth(NodeLowering& n);
// matmul.cpp
void lowerMatMul(NodeLowering& n);
void lowerGemm(NodeLowering& n);
// einsum.cpp
void lowerEinsum(NodeLowering& n);
// normalisation.cpp
void lowerBatchNormalization(NodeLowering& n);
void lowerInstanceNormalization(NodeLowering& n);
void lowerLayerNormalization(NodeLowering& n);
void lowerGroupNormalization(NodeLowering& n);
void lowerLpNormalization(NodeLowering& n);
// recurrent.cpp
void lowerLstm(NodeLowering& n);
// reduce.cpp
void lowerReduce(NodeLowering& n);
// resize.cpp
void lowerResize(NodeLowering& n);

}  // namespace convert
