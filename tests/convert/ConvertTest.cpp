// Small graphs through the whole converter: the file's results equal the evaluator's for a batch of 1 and of 2.
#include <gtest/gtest.h>

#include <ostream>

#include "convert/check/check.h"
#include "convert/conversion.h"
#include "onnxText.h"

namespace {

struct Case {
    const char* name;
    const char* graph;
    int opset = kUsualOpset;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class Convert : public testing::TestWithParam<Case> {};

TEST_P(Convert, GivesTheGraphsResults) {
    const Case& c = GetParam();
    convert::Model model = convert::modelOf(withWeights(protoOfText(c.graph, c.opset)), {});
    convert::takeBranches(model, convert::ConvertOptions{});
    const convert::Conversion made = convert::convertModel(model, {});
    for (const convert::Finding& finding : made.findings)
        ADD_FAILURE() << finding.node << " (" << finding.type << "): " << finding.why;
    if (!made.findings.empty()) return;
    for (const nolk::ModelFinding& finding : nolk::checkModel(made.file.bytes.data(), made.file.bytes.size()).findings)
        ADD_FAILURE() << nolk::describe(finding);
    const convert::CheckOptions options = convert::checkOptionsFor(model, {}, made);
    const convert::CheckResult result = convert::check(model, made.file, options);
    EXPECT_EQ(result.failure, "");
    for (const convert::OutputDifference& output : result.outputs) EXPECT_LT(output.relative, 2e-6) << output.name;
}

INSTANTIATE_TEST_SUITE_P(
    Windows, Convert,
    testing::Values(
        Case{"Conv",
             "(float[N,3,7,6] x) => (float[N,4,4,3] y) <float[4,3,3,2] w = {0}, float[4] wb = {0}>"
             "{ y = Conv<strides=[2,2], pads=[1,0,1,1]>(x, w, wb) }"},
        Case{"ConvOneDimension",
             "(float[N,4,9] x) => (float[N,6,7] y) <float[6,2,3] w = {0}>"
             "{ y = Conv<group=2, pads=[1,1], dilations=[2]>(x, w) }"},
        Case{"ConvSameUpper",
             "(float[N,2,5,5] x) => (float[N,3,3,3] y) <float[3,2,2,2] w = {0}>"
             "{ y = Conv<auto_pad=\"SAME_UPPER\", strides=[2,2]>(x, w) }"},
        Case{"ConvSameLower",
             "(float[N,2,5,5] x) => (float[N,3,5,5] y) <float[3,2,2,2] w = {0}>"
             "{ y = Conv<auto_pad=\"SAME_LOWER\">(x, w) }"},
        Case{"ConvDepthwise",
             "(float[N,4,5,5] x) => (float[N,8,5,5] y) <float[8,1,3,3] w = {0}>"
             "{ y = Conv<group=4, pads=[1,1,1,1]>(x, w) }"},
        Case{"ConvTranspose",
             "(float[N,3,4,5] x) => (float[N,2,8,10] y) <float[3,2,2,2] w = {0}, float[2] wb = {0}>"
             "{ y = ConvTranspose<strides=[2,2]>(x, w, wb) }"},
        Case{"ConvTransposeGroupsDilatedAndPadded",
             "(float[N,4,4,5] x) => (float[N,6,9,11] y) <float[4,3,3,3] w = {0}, float[6] wb = {0}>"
             "{ y = ConvTranspose<strides=[2,2], group=2, dilations=[2,1], pads=[2,1,2,1], output_padding=[1,1]>"
             "(x, w, wb) }"},
        Case{"ConvTransposeOneDimension",
             "(float[N,2,5] x) => (float[N,3,10] y) <float[2,3,4] w = {0}>"
             "{ y = ConvTranspose<strides=[2], pads=[1,1]>(x, w) }"},
        Case{"MaxPoolCeil",
             "(float[N,2,6,7] x) => (float[N,2,3,4] y)"
             "{ y = MaxPool<kernel_shape=[3,2], strides=[2,2], ceil_mode=1>(x) }"},
        Case{"MaxPoolPaddedDilated",
             "(float[N,2,7,7] x) => (float[N,2,5,5] y)"
             "{ y = MaxPool<kernel_shape=[3,3], pads=[1,1,1,1], dilations=[2,2]>(x) }"},
        Case{"AveragePoolLeavesPaddingOut",
             "(float[N,2,6,7] x) => (float[N,2,3,4] y)"
             "{ y = AveragePool<kernel_shape=[3,3], strides=[2,2], pads=[1,1,1,1]>(x) }"},
        Case{"AveragePoolCountsPadding",
             "(float[N,2,6,7] x) => (float[N,2,3,4] y)"
             "{ y = AveragePool<kernel_shape=[3,3], strides=[2,2], pads=[1,1,1,1], count_include_pad=1>(x) }"},
        Case{"AveragePoolCeil",
             "(float[N,2,6,7] x) => (float[N,2,3,4] y)"
             "{ y = AveragePool<kernel_shape=[2,2], strides=[2,2], ceil_mode=1>(x) }"},
        Case{"AveragePoolOneDimension",
             "(float[N,2,6] x) => (float[N,2,3] y)"
             "{ y = AveragePool<kernel_shape=[2], strides=[2]>(x) }"},
        Case{"GlobalPools",
             "(float[N,3,4,5] x) => (float[N,3,1,1] y)"
             "{ a = GlobalAveragePool(x) b = GlobalMaxPool(x) y = Sub(a, b) }"}));

INSTANTIATE_TEST_SUITE_P(
    Activations, Convert,
    testing::Values(
        Case{"Simple",
             "(float[N,3,4,5] x) => (float[N,3,4,5] y)"
             "{ a = Relu(x) b = LeakyRelu<alpha=0.2>(x) c = Sigmoid(x) d = Tanh(x) e = Exp(x) f = Abs(x) "
             "g = HardSigmoid<alpha=0.3, beta=0.4>(x) h = Neg(x) i = Reciprocal(c) "
             "y = Sum(a, b, c, d, e, f, g, h, i) }"},
        Case{"Smooth",
             "(float[N,3,4,5] x) => (float[N,3,4,5] y)"
             "{ a = Elu<alpha=0.5>(x) b = Selu(x) c = Celu<alpha=0.5>(x) d = Softsign(x) e = HardSwish(x) "
             "y = Sum(a, b, c, d, e) }"},
        Case{"ExponentialsOfLargeValues",
             "(float[N,300] x) => (float[N,300] y) <float f = {30}>"
             "{ t = Mul(x, f) a = Elu<alpha=0.5>(t) b = Selu(t) c = Celu<alpha=0.5>(t) d = Softsign(t) "
             "y = Concat<axis=1>(a, b, c, d) }"},
        Case{"Gelu",
             "(float[N,500] x) => (float[N,500] y) <float f = {3}>"
             "{ t = Mul(x, f) a = Gelu(t) b = Gelu<approximate=\"tanh\">(t) y = Concat<axis=1>(a, b) }",
             20},
        Case{"GeluWrittenOut",
             "(float[N,5,400] x) => (float[N,5,400] y) <float r = {1.4142135}, float one = {1}, float half = {0.5}>"
             "{ a = Div(x, r) b = Erf(a) c = Add(b, one) d = Mul(x, c) y = Mul(d, half) }"},
        Case{"HardSwishWrittenOut",
             "(float[N,3,5,5] x) => (float[N,3,5,5] y) <float three = {3}, float zero = {0}, float six = {6}>"
             "{ a = Add(x, three) b = Clip(a, zero, six) c = Mul(x, b) y = Div(c, six) }"},
        Case{"Silu", "(float[N,3,5,5] x) => (float[N,3,5,5] y) { a = Sigmoid(x) y = Mul(x, a) }"},
        Case{"PReluOfChannels", "(float[N,3,4,5] x) => (float[N,3,4,5] y) <float[3,1,1] w = {0}> { y = PRelu(x, w) }"},
        Case{"PReluOfOne", "(float[N,3,4,5] x) => (float[N,3,4,5] y) <float[1] w = {0}> { y = PRelu(x, w) }"},
        Case{"PReluOfMatrices", "(float[N,6] x) => (float[N,6] y) <float[6] w = {0}> { y = PRelu(x, w) }"},
        Case{"ClipOneSide", "(float[N,8] x) => (float[N,8] y) <float high = {0.5}> { y = Clip(x, , high) }"},
        Case{"ClipAttribute", "(float[N,8] x) => (float[N,8] y) { y = Clip<min=-0.5, max=0.5>(x) }", 9},
        Case{"SoftmaxFlattened", "(float[N,3,4,5] x) => (float[N,3,4,5] y) { y = Softmax<axis=1>(x) }", 11},
        Case{"SoftmaxOfEachAxis",
             "(float[N,3,4,5] x) => (float[N,3,4,5] y)"
             "{ a = Softmax<axis=1>(x) b = Softmax<axis=2>(a) y = Softmax<axis=3>(b) }"}));

INSTANTIATE_TEST_SUITE_P(
    Elements, Convert,
    testing::Values(Case{"ConstantsBroadcast",
                         "(float[N,3,4,5] x) => (float[N,3,4,5] y)"
                         "<float[3,1,1] wa = {0}, float[5] wb = {0}, float[4,1] wc = {0}, float[1,1,4,5] wv = {0}>"
                         "{ a = Add(x, wa) b = Mul(wb, a) c = Sub(wc, b) y = Div(c, wv) }"},
                    Case{"TensorsBroadcastBothWays",
                         "(float[N,3,4,5] x) => (float[N,3,4,5] y)"
                         "{ a = ReduceMean<axes=[3]>(x) b = ReduceMax<axes=[2]>(x) c = Sub(a, b) y = Mul(c, x) }"},
                    Case{"SmallerRankIsBroadcast",
                         "(float[N,4,5] x) => (float[N,2,4,5] y) <float[1,2,4,5] w = {0}, int64[1] a = {1}>"
                         "{ u = Unsqueeze(x, a) y = Sub(w, u) }"},
                    Case{"MaxMinSumMean",
                         "(float[N,6] x) => (float[N,6] y) <float[6] w = {0}>"
                         "{ a = Neg(x) b = Max(x, a, w) c = Min(x, w) d = Sum(b, c, x) y = Mean(d, a) }"},
                    Case{"Powers",
                         "(float[N,6] x) => (float[N,6] y) <float two = {2}> { a = Pow(x, two) y = Sub(a, x) }"},
                    Case{"SubAndDivOfConstants",
                         "(float[N,6] x) => (float[N,6] y) <float one = {1}, float three = {3}>"
                         "{ a = Sub(one, x) b = Exp(a) y = Div(three, b) }"}));

INSTANTIATE_TEST_SUITE_P(
    Normalizations, Convert,
    testing::Values(
        Case{"BatchNormalizationAlone",
             "(float[N,3,4,5] x) => (float[N,3,4,5] y)"
             "<float[3] w = {0}, float[3] wb = {0}, float[3] wm = {0}, float[3] wv = {0}>"
             "{ y = BatchNormalization<epsilon=0.01>(x, w, wb, wm, wv) }"},
        Case{"BatchNormalizationFolds",
             "(float[N,3,4,5] x) => (float[N,4,4,5] y) <float[4,3,1,1] wk = {0},"
             "float[4] w = {0}, float[4] wb = {0}, float[4] wm = {0}, float[4] wv = {0}>"
             "{ c = Conv(x, wk) y = BatchNormalization(c, w, wb, wm, wv) }"},
        Case{"MulAndAddFold",
             "(float[N,3,4,5] x) => (float[N,4,4,5] y)"
             "<float[4,3,1,1] wk = {0}, float[1,4,1,1] w = {0}, float[4,1,1] wb = {0}>"
             "{ c = Conv(x, wk) m = Mul(c, w) y = Add(m, wb) }"},
        Case{"BatchNormalizationOfMatrices",
             "(float[N,3] x) => (float[N,3] y)"
             "<float[3] w = {0}, float[3] wb = {0}, float[3] wm = {0}, float[3] wv = {0}>"
             "{ y = BatchNormalization(x, w, wb, wm, wv) }"},
        Case{"InstanceNormalization",
             "(float[N,3,4,5] x) => (float[N,3,4,5] y) <float[3] w = {0}, float[3] wb = {0}>"
             "{ y = InstanceNormalization(x, w, wb) }"},
        Case{"InstanceNormalizationOneDimension",
             "(float[N,3,9] x) => (float[N,3,9] y) <float[3] w = {0}, float[3] wb = {0}>"
             "{ y = InstanceNormalization(x, w, wb) }"},
        Case{"LayerNormalization",
             "(float[N,5,8] x) => (float[N,5,8] y) <float[8] w = {0}, float[8] wb = {0}>"
             "{ y = LayerNormalization(x, w, wb) }"},
        Case{"LayerNormalizationOfImages",
             "(float[N,2,5,8] x) => (float[N,2,5,8] y) <float[8] w = {0}>"
             "{ y = LayerNormalization(x, w) }"},
        Case{"LayerNormalizationWrittenOut",
             "(float[N,5,8] x) => (float[N,5,8] y) <float two = {2}, float e = {0.00001}, float[8] w = {0}, float[8] "
             "wb = {0}>"
             "{ m = ReduceMean<axes=[-1]>(x) d = Sub(x, m) q = Pow(d, two) v = ReduceMean<axes=[-1]>(q) a = Add(v, e) "
             "s = Sqrt(a) n = Div(d, s) k = Mul(n, w) y = Add(k, wb) }"},
        Case{"UnitLength",
             "(float[N,6] x) => (float[N,6] y) <float e = {0.000000000001}, int64[2] s = {0,6}>"
             "{ n = ReduceL2<axes=[1]>(x) c = Clip(n, e) t = Shape(x) b = Expand(c, t) y = Div(x, b) }"}));

INSTANTIATE_TEST_SUITE_P(
    Shapes, Convert,
    testing::Values(
        Case{"ReshapeBakedBatch", "(float[N,3,4,5] x) => (float[N,60] y) <int64[2] s = {1,60}> { y = Reshape(x, s) }"},
        Case{"ReshapeOfAnInputTwiceUsed",
             "(float[N,3,4,5] x) => (float[N,60] y) <int64[2] s = {-1,60}>"
             "{ a = Reshape(x, s) b = Flatten(x) c = Sigmoid(x) d = Flatten(c) e = Mul(a, b) y = Add(e, d) }"},
        Case{"ComputedShape",
             "(float[N,3,4,5] x) => (float[N,3,20] y) <int64 z = {0}, int64[1] a = {0}, int64[2] r = {3,-1}>"
             "{ s = Shape(x) n = Gather(s, z) u = Unsqueeze(n, a) t = Concat<axis=0>(u, r) y = Reshape(x, t) }"},
        Case{"SqueezeUnsqueeze",
             "(float[N,3,1,5] x) => (float[N,1,3,5] y) <int64[1] a = {2}, int64[1] b = {1}>"
             "{ s = Squeeze(x, a) y = Unsqueeze(s, b) }"},
        Case{"TransposesOfChannels",
             "(float[N,3,4,5] x) => (float[N,5,3,4] y)"
             "{ a = Transpose<perm=[0,2,3,1]>(x) b = Relu(a) y = Transpose<perm=[0,2,3,1]>(b) }"},
        Case{"SliceSteps",
             "(float[N,7,6,5] x) => (float[N,3,2,3] y) <int64[3] a = {1,-1,0}, int64[3] e = {7,0,9}, "
             "int64[3] k = {1,2,3}, int64[3] s = {2,-3,2}> { y = Slice(x, a, e, k, s) }"},
        Case{"SplitConcat",
             "(float[N,7,3] x) => (float[N,7,3] y) <int64[3] s = {2,1,4}>"
             "{ a, b, c = Split<axis=1>(x, s) d = Relu(a) y = Concat<axis=1>(c, b, d) }"},
        Case{"GatherChannels",
             "(float[N,5,3] x) => (float[N,4,3] y) <int64[4] i = {4,0,0,2}> { y = Gather<axis=1>(x, i) }"},
        Case{"GatherOne", "(float[N,5,3] x) => (float[N,3] y) <int64 i = {-1}> { y = Gather<axis=1>(x, i) }"},
        Case{"PadAll", "(float[N,2,3,4] x) => (float[N,5,4,6] y) <int64[8] p = {0,1,0,2,0,2,1,0}> { y = Pad(x, p) }"},
        Case{"ExpandTile",
             "(float[N,1,3] x) => (float[N,2,6] y) <int64[3] s = {1,2,1}, int64[3] r = {1,1,2}>"
             "{ e = Expand(x, s) y = Tile(e, r) }"},
        Case{"DepthToSpace", "(float[N,8,3,4] x) => (float[N,2,6,8] y) { y = DepthToSpace<blocksize=2>(x) }"},
        Case{"DepthToSpaceChannelsFirst",
             "(float[N,8,3,4] x) => (float[N,2,6,8] y)"
             "{ y = DepthToSpace<blocksize=2, mode=\"CRD\">(x) }"},
        Case{"SpaceToDepth", "(float[N,2,4,6] x) => (float[N,8,2,3] y) { y = SpaceToDepth<blocksize=2>(x) }"},
        Case{"ChannelShuffle",
             "(float[N,6,3,4] x) => (float[N,6,3,4] y) <int64[5] s = {0,2,3,3,4}, int64[4] t = {0,6,3,4}>"
             "{ a = Reshape(x, s) b = Transpose<perm=[0,2,1,3,4]>(a) y = Reshape(b, t) }"},
        Case{"FiveDimensionsInAnyOrder",
             "(float[N,24,5] x) => (float[N,4,10,3] y) <int64[5] s = {0,2,3,4,5}, int64[4] t = {0,4,10,3}>"
             "{ a = Reshape(x, s) b = Transpose<perm=[0,3,1,4,2]>(a) y = Reshape(b, t) }"},
        Case{"SeveralInputsAndOutputs",
             "(float[N,4] x, float[N,5] unused, float[N,2,2] b, float[N,4] shape)"
             "=> (float[N,4] y, float[N,4] z, float[N,4] t, float[N,4] y)"
             "{ s = Shape(shape) r = Reshape(b, s) y = Sub(x, r) z = Mul(y, x) t = Identity(z) }"},
        Case{"ConstantOutputs",
             "(float[N,4] x) => (float[N,4] y, float[1,3] k, float[2,2] l)"
             "<float[1,3] a = {1,2,3}, float[2,2] b = {1,2,3,4}> { y = Relu(x) k = Neg(a) l = Neg(b) }"},
        Case{"ChoiceOfInfinity",
             "(float[N,3] x) => (float[N,3] y) <bool[3] c = {1,0,1}, float[1] one = {1}, float zero = {0}, "
             "float none = {0}>"
             "{ l = Div(one, zero) m = Neg(l) e = Pow(x, none) a = Where(c, x, m) y = Add(a, e) }"},
        Case{"BatchThatLooksLikeChannels",
             "(float[1,3,4,4] x, float[1,4,4] z) => (float[1,3,4,4] y) { y = Mul(x, z) }"},
        Case{"ConstantsForEachSample",
             "(float[N,3,4] x) => (float[N,3,4] y) <int64[2] r = {3,4}, int64 z = {0}, int64[1] a = {0}, "
             "float[1,1,4] w = {0}>"
             "{ s = Shape(x) n = Gather(s, z) u = Unsqueeze(n, a) t = Concat<axis=0>(u, r) e = Expand(w, t) "
             "y = Add(x, e) }"},
        Case{"NodesThatNoOutputNeeds",
             "(float[N,3,4] x) => (float[N,3,4] y) { y = Relu(x) d = NonMaxSuppression(x, x) e = Reshape(x, d) }"},
        Case{"DropoutAndIdentity", "(float[N,4] x) => (float[N,4] y) { a = Dropout(x) y = Identity(a) }"}));

INSTANTIATE_TEST_SUITE_P(
    Sums, Convert,
    testing::Values(
        Case{"Gemm",
             "(float[N,6] x) => (float[N,3] y) <float[3,6] w = {0}, float[3] wb = {0}>"
             "{ y = Gemm<transB=1, alpha=0.5, beta=2.0>(x, w, wb) }"},
        Case{"GemmPlain", "(float[N,6] x) => (float[N,3] y) <float[6,3] w = {0}> { y = Gemm(x, w) }"},
        Case{"MatMulOfAConstant", "(float[N,5,6] x) => (float[N,5,3] y) <float[6,3] w = {0}> { y = MatMul(x, w) }"},
        Case{"MatMulOfAConstantOnTheLeft",
             "(float[N,5,6] x) => (float[N,3,6] y) <float[3,5] w = {0}> { y = MatMul(w, x) }"},
        Case{"MatMulOfPlanes",
             "(float[N,2,5,6] x) => (float[N,2,5,5] y) { t = Transpose<perm=[0,1,3,2]>(x) y = MatMul(x, t) }"},
        Case{"MatMulOfPlanesWithConstants",
             "(float[N,2,5,6] x) => (float[N,2,5,3] y) <float[2,6,3] w = {0}> { y = MatMul(x, w) }"},
        Case{"EinsumOfTwoTensors",
             "(float[N,5,2,3] x) => (float[N,2,5,5] y) { y = Einsum<equation=\"bihd,bjhd->bhij\">(x, x) }"},
        Case{"EinsumOfConstants",
             "(float[N,5,6] x) => (float[N,7,5] y) <float[6,2,3] w = {0}, float[2,3,7] wx = {0}>"
             "{ a = Einsum<equation=\"bid, dhk -> bhik\">(x, w) y = Einsum<equation=\"bhik,hkc->bci\">(a, wx) }"},
        Case{"EinsumOfPlanesWithAConstant",
             "(float[N,3,4,5] x) => (float[N,4,3] y) <float[4,5] w = {0}>"
             "{ y = Einsum<equation=\"...chw,hw->...hc\">(x, w) }"},
        Case{"EinsumOfThree",
             "(float[N,3,4] x) => (float[N,6] y) <float[4,5] w = {0}, float[5,6] wx = {0}>"
             "{ y = Einsum<equation=\"bij,jk,kl->bl\">(x, w, wx) }"},
        Case{"Reductions",
             "(float[N,3,4,5] x) => (float[N,1,1,1] y)"
             "{ a = ReduceMax<axes=[1]>(x) b = ReduceMin<axes=[2]>(a) c = ReduceL1<axes=[3]>(b) "
             "d = ReduceMean<axes=[1,2,3]>(x) e = ReduceL2<axes=[-1,-2,-3]>(x) f = ReduceSumSquare<axes=[1,2,3]>(x) "
             "y = Sum(c, d, e, f) }"},
        Case{"ReductionsDropAxes",
             "(float[N,3,4,5] x) => (float[N,4] y) <int64[2] a = {1,3}>"
             "{ y = ReduceSum<keepdims=0>(x, a) }"},
        Case{"Attention",
             "(float[N,5,12] x) => (float[N,5,12] y) <float[12,36] w = {0}, int64[5] s = {0,0,3,2,6}, int64 i = {0}, "
             "int64 j = {1}, int64 k = {2}, int64[3] t = {0,0,12}, float f = {0.4}>"
             "{ p = MatMul(x, w) r = Reshape(p, s) q = Transpose<perm=[2,0,3,1,4]>(r) "
             "a = Gather<axis=0>(q, i) b = Gather<axis=0>(q, j) c = Gather<axis=0>(q, k) "
             "d = Transpose<perm=[0,1,3,2]>(b) e = MatMul(a, d) g = Mul(e, f) h = Softmax<axis=-1>(g) "
             "l = MatMul(h, c) m = Transpose<perm=[0,2,1,3]>(l) y = Reshape(m, t) }"}));

// An If whose condition follows from shapes, with one inside that a constant decides.
INSTANTIATE_TEST_SUITE_P(Branches, Convert,
                         testing::Values(Case{
                             "TakenByAnExtent",
                             "(float[N,4,1,5] x) => (float[N,4,5] y) <int64 i = {2}, int64 one = {1}, bool no = {0}>"
                             "{ s = Shape(x) e = Gather(s, i) c = Equal(e, one)"
                             "  z = If<then_branch = t () => (float[N,4,5] r) <int64[1] a = {2}>"
                             "    { q = If<then_branch = u () => (float[N,4,1,5] v) { v = Neg(x) },"
                             "      else_branch = w () => (float[N,4,1,5] v) { v = Relu(x) }>(no) r = Squeeze(q, a) },"
                             "    else_branch = f () => (float[N,4,1,5] r) { r = Identity(x) }>(c)"
                             "  y = Add(z, z) }"}));

INSTANTIATE_TEST_SUITE_P(
    Sequences, Convert,
    testing::Values(
        Case{"LstmForward",
             "(float[N,7,4] x) => (float[N,7,3] y) <float[1,12,4] w = {0}, float[1,12,3] wr = {0}, "
             "float[1,24] wb = {0}, int64[1] a = {1}>"
             "{ t = Transpose<perm=[1,0,2]>(x) h = LSTM<hidden_size=3>(t, w, wr, wb) s = Squeeze(h, a) "
             "y = Transpose<perm=[1,0,2]>(s) }"},
        Case{"LstmBackwardToTimeMajor",
             "(float[N,7,4] x) => (float[7,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] wr = {0}, int64[1] a = {1}>"
             "{ t = Transpose<perm=[1,0,2]>(x) h = LSTM<hidden_size=3, direction=\"reverse\">(t, w, wr) y = Squeeze(h, "
             "a) }"},
        Case{"LstmOfTimeMajorInputs",
             "(float[7,N,4] x) => (float[7,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] wr = {0}, int64[1] a = {1}>"
             "{ h = LSTM<hidden_size=3>(x, w, wr) y = Squeeze(h, a) }"},
        Case{"LstmBothDirectionsTwice",
             "(float[N,4,7] x) => (float[7,N,6] y) <float[2,12,4] w = {0}, float[2,12,3] wr = {0}, float[2,24] wb = "
             "{0}, "
             "float[2,12,6] wx = {0}, float[2,12,3] ws = {0}, int64[3] d = {0,0,-1}>"
             "{ t = Transpose<perm=[2,0,1]>(x) h = LSTM<hidden_size=3, direction=\"bidirectional\">(t, w, wr, wb) "
             "p = Transpose<perm=[0,2,1,3]>(h) r = Reshape(p, d) g = LSTM<hidden_size=3, "
             "direction=\"bidirectional\">(r, wx, ws) "
             "q = Transpose<perm=[0,2,1,3]>(g) y = Reshape(q, d) }"}));

INSTANTIATE_TEST_SUITE_P(
    Resizes, Convert,
    testing::Values(
        Case{"NearestWholeFactor",
             "(float[N,2,3,4] x) => (float[N,2,6,12] y) <float[4] s = {1,1,2,3}>"
             "{ y = Resize<coordinate_transformation_mode=\"asymmetric\", nearest_mode=\"floor\">(x, , s) }"},
        Case{"NearestHalfPixel",
             "(float[N,2,3,4] x) => (float[N,2,6,8] y) <float[4] s = {1,1,2,2}> { y = Resize(x, , s) }"},
        Case{"LinearHalfPixel",
             "(float[N,2,3,4] x) => (float[N,2,5,9] y) <int64[4] s = {1,2,5,9}>"
             "{ y = Resize<mode=\"linear\">(x, , , s) }"},
        Case{"LinearAlignCorners",
             "(float[N,2,3,4] x) => (float[N,2,5,9] y) <int64[4] s = {1,2,5,9}>"
             "{ y = Resize<mode=\"linear\", coordinate_transformation_mode=\"align_corners\">(x, , , s) }"},
        Case{"KeepsTheRatio",
             "(float[N,2,6,7] x) => (float[N,2,12,12] y) <int64[2] s = {12,10}, int64[2] r = {9,13}>"
             "{ a = Resize<mode=\"linear\", axes=[2,3], keep_aspect_ratio_policy=\"not_larger\">(x, , , s) "
             "y = Resize<mode=\"linear\", axes=[-2,-1], keep_aspect_ratio_policy=\"not_smaller\">(a, , , r) }",
             18},
        Case{"ScalesThatAreRoundedQuotients",
             "(float[N,1,10,10] x) => (float[N,1,12,19] y) <float[4] s = {1,1,1.2,1.9}> { y = Resize(x, s) }", 10},
        Case{"Upsample", "(float[N,2,3,4] x) => (float[N,2,6,8] y) { y = Upsample<scales=[1.0,1.0,2.0,2.0]>(x) }", 7},
        Case{"ResizeOpset10", "(float[N,2,3,4] x) => (float[N,2,6,8] y) <float[4] s = {1,1,2,2}> { y = Resize(x, s) }",
             10}));

// Each folding sees what the ones before it have left.
TEST(ConvertFolding, TakesAWholeChainIntoTheConvolution) {
    const auto operationsOf = [](const std::string& rest) {
        const std::string text =
            "(float[N,3,4,5] x) => (float[N,4,4,5] y) <float[4,3,1,1] wk = {0}, float f = {1.5},"
            "float[4,1,1] wa = {0}, float[4] w = {0}, float[4] wv = {0}> { c = Conv(x, wk) " +
            rest + " }";
        return convert::convertModel(convert::modelOf(withWeights(protoOfText(text)), {}), {}).operations;
    };
    EXPECT_EQ(operationsOf("m = Mul(c, f) a = Add(m, wa) d = Mul(f, a) b = BatchNormalization(d, w, w, w, wv) "
                           "y = Sub(b, wa)"),
              operationsOf("y = Add(c, wa)"));
    EXPECT_NE(operationsOf("m = Mul(c, f) y = Add(m, c)"), operationsOf("y = Add(c, wa)"));
}

// A limit that a norm may well be below is not left out, and sums of millions of elements keep their digits.
TEST(ConvertNumbers, AreThoseOfTheGraph) {
    const char* const kGraphs[] = {
        ("(float[N,2,6,4] x) => (float[N,2,6,4] y) <float f = {1e-5}, int64[4] s = {1,2,6,4}>"
         "{ t = Mul(x, f) n = ReduceL2<axes=[1], keepdims=1>(t) c = Clip(n, f) e = Expand(c, s) y = Div(t, e) }"),
        "(float[N,1,2000,2000] x) => (float[N,1,1,1] y) { y = GlobalAveragePool(x) }",
        "(float[N,3000000] x) => (float[N,1] y) <int64[1] a = {1}> { y = ReduceSum(x, a) }",
        "(float[N,100000,3] x) => (float[N,1,3] y) { y = ReduceMean<axes=[1]>(x) }",
    };
    for (const char* graph : kGraphs) {
        SCOPED_TRACE(graph);
        const convert::Model model = modelOfText(graph);
        const convert::Conversion made = convert::convertModel(model, {});
        ASSERT_TRUE(made.findings.empty()) << made.findings[0].why;
        EXPECT_EQ(convert::check(model, made.file, convert::checkOptionsFor(model, {}, made)).failure, "");
    }
}

// Which extents of x a sample has; taking the length of a sequence for a batch would make another network.
TEST(ConvertBatch, IsTheAxisThatTheModelMeans) {
    struct Row {
        const char* graph;
        convert::Dims given;  // by --shape; empty: nothing
        convert::Dims sample;
    };
    const char* kLastState =
        "(float[20,batch,3] x) => (float[batch,4] y) <float[1,16,3] w = {0}, float[1,16,4] wr = {0}, int64[1] a = {0}>"
        "{ q, h = LSTM<hidden_size=4>(x, w, wr) y = Squeeze(h, a) }";
    const char* kMean = "(float[20,N,4] x) => (float[N,4] y) { y = ReduceMean<axes=[0], keepdims=0>(x) }";
    const char* kAllFree = "(float[T,N,4] x) => (float[N,4] y) { y = ReduceMean<axes=[0], keepdims=0>(x) }";
    const Row kRows[] = {
        {kLastState, {}, {20, 1, 3}},
        {kLastState, {20, 1, 3}, {20, 1, 3}},
        {kMean, {}, {20, 1, 4}},
        {kMean, {20, 1, 4}, {20, 1, 4}},
        {kAllFree, {20, 1, 4}, {20, 1, 4}},
        {"(float[20,N,4] x) => (float[N,20,4] y)"
         "{ b = Transpose<perm=[1,0,2]>(x) t = Transpose<perm=[0,2,1]>(b) s = MatMul(b, t) p = Softmax(s) "
         "y = MatMul(p, b) }",
         {},
         {20, 1, 4}},
        {"(float[20,N,4] x, float[20,N,4] z) => (float[N,20,4] y)"
         "{ q = Add(x, z) y = Transpose<perm=[1,0,2]>(q) }",
         {},
         {20, 1, 4}},
        {"(float[20,4] x) => (float[5,4] y) <int64[1] b = {-5}, int64[1] e = {99}, int64[1] a = {0}>"
         "{ y = Slice(x, b, e, a) }",
         {},
         {20, 4}},
        {"(float[7,1,4] x) => (float[7,1,3] y) <float[1,12,4] w = {0}, float[1,12,3] wr = {0}, int64[1] a = {1}>"
         "{ h = LSTM<hidden_size=3>(x, w, wr) y = Squeeze(h, a) }",
         {},
         {7, 1, 4}},
        {"(float[7,3,5] x) => (float[7,3,5] y)"
         "{ t = Transpose<perm=[1,2,0]>(x) p = MaxPool<kernel_shape=[3], pads=[1,1]>(t) "
         "y = Transpose<perm=[2,0,1]>(p) }",
         {},
         {7, 3, 5}},
        {"(float[7,4] x) => (float[7,4] y) <int64[1] b = {99}, int64[1] e = {-99}, int64[1] a = {0}, int64[1] s = {-1}>"
         "{ y = Slice(x, b, e, a, s) }",
         {},
         {7, 4}},
        {"(float[7,4] x) => (float[7,4] y) <int64[1] b = {99}, int64[1] e = {-99}, int64[1] a = {1}, int64[1] s = {-1}>"
         "{ y = Slice(x, b, e, a, s) }",
         {},
         {1, 4}},
        {"(float[5,3,4] x) => (float[5,3,4] y) { y = Relu(x) }", {}, {1, 3, 4}},
        {"(float[N,3,4] x) => (float[N,3,4] y) { y = Relu(x) }", {5, 3, 4}, {1, 3, 4}},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.graph);
        const convert::Model model = convert::modelOf(withWeights(protoOfText(row.graph)), {});
        convert::ConvertOptions options;
        if (!row.given.empty()) options.shapes["x"] = row.given;
        const convert::Conversion made = convert::convertModel(model, options);
        ASSERT_TRUE(made.findings.empty()) << made.findings[0].why;
        EXPECT_EQ(made.inputDims.at("x"), row.sample);
        EXPECT_EQ(convert::check(model, made.file, convert::checkOptionsFor(model, options, made)).failure, "");
    }
}

}  // namespace
