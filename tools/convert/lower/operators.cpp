#include "convert/lower/operators.h"

#include <map>

namespace convert {

namespace {

// For an operator of single elements that is one operation of the file.
template <int (Program::*operation)(int)>
void lowerElements(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, (n.program.*operation)(x.step)));
}

const std::map<std::string, LowerFunction>& table() {
    static const std::map<std::string, LowerFunction> kTable{
        {"Abs", lowerElements<&Program::abs>},
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
        {"Exp", lowerElements<&Program::exp>},
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
        {"Relu", lowerElements<&Program::relu>},
        {"Reshape", lowerReshape},
        {"Resize", lowerResize},
        {"Selu", lowerSelu},
        {"Sigmoid", lowerElements<&Program::sigmoid>},
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
        {"Tanh", lowerElements<&Program::tanh>},
        {"Tile", lowerTile},
        {"Transpose", lowerTranspose},
        {"Unsqueeze", lowerReshape},
        {"Upsample", lowerResize},
        {"Where", lowerWhere},
    };
    return kTable;
}

constexpr const char* kCut = "end the network before it and leave the rest to the host";
constexpr const char* kTrace = "export by tracing, which follows one path (torch.jit.trace, not torch.jit.script)";
constexpr const char* kFloats = "export the network before quantisation";
constexpr const char* kOther = "replace it by operators that converting.md lists, or end the network before it";

const std::map<std::string, const char*>& advice() {
    static const std::map<std::string, const char*> kAdvice{
        {"ArgMax", kCut},
        {"ArgMin", kCut},
        {"ConvInteger", kFloats},
        {"DequantizeLinear", kFloats},
        {"DynamicQuantizeLinear", kFloats},
        {"Einsum", "write the product with matmul and permute"},
        {"GRU", "replace it by an LSTM"},
        {"GridSample", "replace it by a Resize where the grid is fixed"},
        {"If", kTrace},
        {"Log", kCut},
        {"Loop", kTrace},
        {"MatMulInteger", kFloats},
        {"MaxUnpool", "replace it by a Resize or a ConvTranspose"},
        {"NonMaxSuppression", kCut},
        {"NonZero", kCut},
        {"OneHot", kCut},
        {"QLinearConv", kFloats},
        {"QLinearMatMul", kFloats},
        {"QuantizeLinear", kFloats},
        {"RNN", "replace it by an LSTM"},
        {"RoiAlign", kCut},
        {"Scan", kTrace},
        {"TopK", kCut},
    };
    return kAdvice;
}

}  // namespace

LowerFunction loweringOf(const std::string& type) {
    const auto found = table().find(type);
    return found == table().end() ? nullptr : found->second;
}

std::vector<std::string> loweredOperators() {
    std::vector<std::string> types;
    for (const auto& row : table()) types.push_back(row.first);
    return types;
}

std::string adviceFor(const std::string& type) {
    const auto found = advice().find(type);
    return found != advice().end() ? found->second : kOther;
}

std::string adviceForDomain() {
    return "export with ONNX's own operators only, and without the optimisations of another program";
}

std::string adviceForShapes(const std::string& type) {
    const auto found = advice().find(type);
    return found != advice().end() && !loweringOf(type)
               ? found->second
               : "check that the inputs have the shapes that the network was made for; --shape sets them";
}

}  // namespace convert
