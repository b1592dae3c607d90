#include "convert/lower/operators.h"

#include <map>

namespace convert {

namespace {

const std::map<std::string, LowerFunction>& table() {
    static const std::map<std::string, LowerFunction> kTable{
        {"Abs", lowerAbs},
        {"Add", lowerAdd},
        {"AveragePool", lowerAveragePool},
        {"BatchNormalization", lowerBatchNormalization},
        {"Cast", lowerCast},
        {"CastLike", lowerIdentity},
        {"Celu", lowerCelu},
        {"Clip", lowerClip},
        {"Concat", lowerConcat},
        {"Conv", lowerConv},
        {"ConvTranspose", lowerConvTranspose},
        {"DepthToSpace", lowerDepthToSpace},
        {"Div", lowerDiv},
        {"Dropout", lowerDropout},
        {"Einsum", lowerEinsum},
        {"Elu", lowerElu},
        {"Erf", lowerErf},
        {"Exp", lowerExp},
        {"Expand", lowerExpand},
        {"Flatten", lowerReshape},
        {"Gather", lowerGather},
        {"Gelu", lowerGelu},
        {"Gemm", lowerGemm},
        {"GlobalAveragePool", lowerGlobalAveragePool},
        {"GlobalMaxPool", lowerGlobalMaxPool},
        {"GroupNormalization", lowerGroupNormalization},
        {"HardSigmoid", lowerHardSigmoid},
        {"HardSwish", lowerHardSwish},
        {"Identity", lowerIdentity},
        {"InstanceNormalization", lowerInstanceNormalization},
        {"LSTM", lowerLstm},
        {"LayerNormalization", lowerLayerNormalization},
        {"LeakyRelu", lowerLeakyRelu},
        {"LogSoftmax", lowerLogSoftmax},
        {"LpNormalization", lowerLpNormalization},
        {"MatMul", lowerMatMul},
        {"Max", lowerMax},
        {"MaxPool", lowerMaxPool},
        {"Mean", lowerMean},
        {"Min", lowerMin},
        {"Mish", lowerMish},
        {"Mul", lowerMul},
        {"Neg", lowerNeg},
        {"PRelu", lowerPRelu},
        {"Pad", lowerPad},
        {"Pow", lowerPow},
        {"Reciprocal", lowerReciprocal},
        {"ReduceL1", lowerReduce},
        {"ReduceL2", lowerReduce},
        {"ReduceMax", lowerReduce},
        {"ReduceMean", lowerReduce},
        {"ReduceMin", lowerReduce},
        {"ReduceSum", lowerReduce},
        {"ReduceSumSquare", lowerReduce},
        {"Relu", lowerRelu},
        {"Reshape", lowerReshape},
        {"Resize", lowerResize},
        {"Selu", lowerSelu},
        {"Sigmoid", lowerSigmoid},
        {"Slice", lowerSlice},
        {"Softmax", lowerSoftmax},
        {"Softplus", lowerSoftplus},
        {"Softsign", lowerSoftsign},
        {"SpaceToDepth", lowerSpaceToDepth},
        {"Split", lowerSplit},
        {"Sqrt", lowerSqrt},
        {"Squeeze", lowerReshape},
        {"Sub", lowerSub},
        {"Sum", lowerSum},
        {"Tanh", lowerTanh},
        {"Tile", lowerTile},
        {"Transpose", lowerTranspose},
        {"Unsqueeze", lowerReshape},
        {"Upsample", lowerResize},
        {"Where", lowerWhere},
    };
    return kTable;
}

const char kCut[] = "end the network before it and leave the rest to the host";

const std::map<std::string, const char*>& advice() {
    static const std::map<std::string, const char*> kAdvice{
        {"ArgMax", kCut},
        {"ArgMin", kCut},
        {"Einsum", "write the product with matmul and permute"},
        {"GRU", "replace by an LSTM"},
        {"GridSample", "replace by a Resize where the grid is fixed"},
        {"If", "export with the branch that is taken (torch.jit.trace instead of torch.jit.script)"},
        {"Log", kCut},
        {"Loop", "export an unrolled loop (torch.jit.trace instead of torch.jit.script)"},
        {"MaxPool", "leave out the output Indices: replace MaxUnpool by a Resize or a ConvTranspose"},
        {"MaxUnpool", "replace by a Resize or a ConvTranspose"},
        {"NonMaxSuppression", kCut},
        {"NonZero", kCut},
        {"OneHot", kCut},
        {"QLinearConv", "export the network before quantisation"},
        {"QuantizeLinear", "export the network before quantisation"},
        {"DequantizeLinear", "export the network before quantisation"},
        {"RNN", "replace by an LSTM"},
        {"RoiAlign", kCut},
        {"Scan", "export an unrolled loop (torch.jit.trace instead of torch.jit.script)"},
        {"TopK", kCut},
    };
    return kAdvice;
}

}  // namespace

LowerFunction loweringOf(const std::string& type) {
    const auto found = table().find(type);
    return found == table().end() ? nullptr : found->second;
}

std::string adviceFor(const std::string& type) {
    const auto found = advice().find(type);
    return found != advice().end() ? found->second
                                   : "replace by operators of docs/converting.md, or end the network before it";
}

}  // namespace convert
