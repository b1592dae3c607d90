// The evaluator against values that were computed by hand, where a definition can be misread. For plain ones the
// conversions in ConvertTest are enough, as the lowering does them in another way; scripts/zoo holds both against
// ONNX's own cases and PyTorch.
#include <gtest/gtest.h>

#include <cmath>

#include "convert/evaluate/evaluateGraph.h"
#include "onnxText.h"

namespace {

using convert::Array;
using convert::Dims;
using Floats = std::vector<float>;

struct Case {
    const char* graph;  // from x to y, whose dims it tells
    Floats x;
    Floats y;
    int opset = kUsualOpset;
};

const Case kCases[] = {
    // Windows.
    {R"((float[1,1,1,3] x) => (float[1,1,1,3] y) <float[1,1,1,2] w = {1,10}>
        { y = Conv<auto_pad="SAME_LOWER">(x, w) })",
     {1, 2, 3},
     {10, 21, 32}},
    {R"((float[1,1,1,3] x) => (float[1,1,1,3] y) <float[1,1,1,2] w = {1,10}>
        { y = Conv<auto_pad="SAME_UPPER">(x, w) })",
     {1, 2, 3},
     {21, 32, 3}},
    {R"((float[1,1,1,4] x) => (float[1,1,1,2] y) { y = MaxPool<kernel_shape=[1,1], strides=[1,2], ceil_mode=1>(x) })",
     {1, 2, 3, 4},
     {1, 3}},
    {R"((float[1,1,1,3] x) => (float[1,1,1,2] y)
        { y = AveragePool<kernel_shape=[1,2], strides=[1,2], ceil_mode=1, count_include_pad=1>(x) })",
     {2, 4, 8},
     {3, 8}},
    // Elements.
    {"(float[2] x) => (float[2] y) { y = HardSigmoid(x) }", {1, 9}, {0.7F, 1}},
    {"(float[2] x) => (float[2] y) { y = Celu<alpha=2.0>(x) }", {-2, 2}, {-1.264241F, 2}},
    {"(float[2] x) => (float[2] y) { y = Mish(x) }", {-1, 2}, {-0.303401F, 1.943959F}, 18},
    {"(float[2] x) => (float[2] y) <float w = {0}> { c = Less(x, w) y = Where(c, w, x) }", {-1, 2}, {0, 2}, 16},
    {"(float[1] x) => (int64[2] y) <int64[2] a = {-7, 7}, int64 b = {2}> { y = Div(a, b) }", {0}, {-3, 3}},
    {"(float[1] x) => (int64[2] y) <int64[2] a = {-7, 7}, int64 b = {4}> { y = Mod(a, b) }", {0}, {1, 3}},
    {"(float[3] x) => (int32[3] y) { y = Cast<to=6>(x) }", {-1.7F, 1.7F, 3}, {-1, 1, 3}},
    // Normalizations; before opset 13 the softmax flattens.
    {"(float[1,2,2] x) => (float[1,2,2] y) { y = Softmax(x) }", Floats(4), Floats(4, 0.25F), 11},
    {"(float[1,2,2] x) => (float[1,2,2] y) { y = Softmax(x) }", {0, 0, 0, 1.0986123F}, {0.5F, 0.5F, 0.25F, 0.75F}, 13},
    {R"((float[1,4,1] x) => (float[1,4,1] y) <float[2] s = {1,10}, float[2] b = {0,0}>
        { y = GroupNormalization<num_groups=2, epsilon=0.0>(x, s, b) })",
     {1, 3, 5, 9},
     {-1, 1, -10, 10},
     18},
    {"(float[1,3] x) => (float[1,3] y) { y = LRN<size=2, alpha=2.0, beta=1.0>(x) }",
     {1, 1, 2},
     {0.333333F, 0.166667F, 0.4F},
     13},
    {"(float[2,2] x) => (float[2,2] y) { y = LpNormalization(x) }", {3, 4, 0, 0}, {0.6F, 0.8F, 0, 0}},
    // Shapes.
    {"(float[1,2,1] x) => (float[1,2] y) { y = Squeeze<axes=[-1]>(x) }", {1, 2}, {1, 2}, 11},
    {"(float[2] x) => (float[1,2,1] y) <int64[2] a = {-1,0}> { y = Unsqueeze(x, a) }", {1, 2}, {1, 2}, 13},
    {"(float[2,3,4] x) => (int64[2] y) { y = Shape<start=-2>(x) }", ramp(24), {3, 4}, 15},
    {"(float[2,2] x) => (int64[2] y) <int64 a = {0}, int64 d = {3}> { n = Size(x) y = Range(a, n, d) }",
     ramp(4),
     {0, 3}},
    {"(float[1,2] x) => (float[1,2] y) { s = Shape(x) y = ConstantOfShape<value=float[1] {7}>(s) }", {0, 0}, {7, 7}},
    {R"((float[1] x) => (float[2,3] y) <int64[2] i = {0,-1}, int64 d = {3}, float[2] v = {1,5}>
        { y = OneHot(i, d, v) })",
     {0},
     {5, 1, 1, 1, 1, 5}},
    // Places.
    {"(float[2,3] x) => (float[2,2] y) { y = Slice<starts=[1], ends=[9], axes=[1]>(x) }", ramp(6), {1, 2, 4, 5}, 9},
    {"(float[5] x) => (float[1] y) { a, b, y = Split<num_outputs=3>(x) }", ramp(5), {4}, 18},
    {R"((float[1,3] x) => (float[1,6] y) <int64[4] p = {0,2,0,1}> { y = Pad<mode="reflect">(x, p) })",
     {1, 2, 3},
     {3, 2, 1, 2, 3, 2}},
    {"(float[3] x) => (float[3] y) <int64[2] p = {-1,1}, float v = {9}> { y = Pad(x, p, v) }", {1, 2, 3}, {2, 3, 9}},
    {"(float[2] x) => (float[3] y) { y = Pad<pads=[1,0], value=5.0>(x) }", {1, 2}, {5, 1, 2}, 9},
    {"(float[1,8,1,1] x) => (float[1,2,2,2] y) { y = DepthToSpace<blocksize=2>(x) }",
     ramp(8),
     {0, 2, 4, 6, 1, 3, 5, 7}},
    {R"((float[1,8,1,1] x) => (float[1,2,2,2] y) { y = DepthToSpace<blocksize=2, mode="CRD">(x) })", ramp(8), ramp(8)},
    {"(float[1] x) => (int64[2,2] y) <float[2,2] c = {0,3,4,0}> { y = NonZero(c) }", {0}, {0, 1, 1, 0}},
    {"(float[2,2] x) => (float[2,2] y) { y = Trilu<upper=0>(x) }", {1, 2, 3, 4}, {1, 0, 3, 4}},
    // Sums.
    {R"((float[2,2,2] x) => (float[2,2] y) { y = Einsum<equation="...ii->...i">(x) })", ramp(8), {0, 3, 4, 7}},
    {R"((float[2,2] x) => (float[2,1] y) <float[1,2] w = {1,10}> { y = Einsum<equation="ba, ca">(x, w) })",
     ramp(4),
     {10, 32}},
    {"(float[2] x) => (float[2] y) { y = ReduceSum<noop_with_empty_axes=1>(x) }", {1, 2}, {1, 2}, 18},
    {"(float[2] x) => (float y) { y = ReduceL2<keepdims=0>(x) }", {3, 4}, {5}, 13},
    {"(float[1,3] x) => (int64[1] y) { y = ArgMax<axis=1, keepdims=0>(x) }", {1, 2, 2}, {1}, 13},
    {"(float[3] x) => (float[3] y) <int32 a = {0}> { y = CumSum<exclusive=1>(x, a) }", {1, 2, 3}, {0, 1, 3}, 14},
    // Gates: input 1/2, output 1/2, forget 1/2, candidate tanh(x); then the state h of the step before is not used.
    {R"((float[2,1,1] x) => (float[2,1,1,1] y) <float[1,4,1] w = {0,0,0,1}, float[1,4,1] r = {0,0,0,0}>
        { y = LSTM<hidden_size=1, direction="reverse">(x, w, r) })",
     {1, 2},
     {0.276191F, 0.223925F},
     14},
    // Resizes, by the nearest floats to 12/10, above it, and to 19/10, below it.
    {R"((float[1,1,1,10] x) => (float[1,1,1,12] y)
        <float[4] s = {1,1,1,1.2}, float[4] t = {1,1,1,1.9}, int64 a = {3}>
        { u = Resize(x, s) v = Resize(x, t) w = Shape(v) c = Cast<to=1>(w) g = Gather(c, a) y = Add(u, g) })",
     ramp(10),
     {19, 19, 20, 21, 22, 23, 24, 24, 25, 26, 27, 28},
     10},
    {"(float[1,1,1,4] x) => (float[1,1,1,2] y) <float[4] s = {1,1,1,0.5}> { y = Resize(x, , s) }", ramp(4), {0, 2}, 13},
};

Floats valuesOf(const Array& array) {
    return array.isFloat() ? array.floats() : Floats(array.ints().begin(), array.ints().end());
}

TEST(Evaluate, FollowsTheDefinition) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.graph << ", opset " << c.opset);
        const convert::Model model = modelOfText(c.graph, c.opset);
        const Dims dims = inputsOf(model).at(0).dims;
        const Array y = convert::evaluateGraph(model, {{"x", convert::floatArray(dims, c.x)}}).at("y");
        Dims expected;
        for (const auto& extent : model.graph().output(0).type().tensor_type().shape().dim())
            expected.push_back(extent.dim_value());
        EXPECT_EQ(y.dims(), expected);
        EXPECT_EQ(convert::evaluateGraphShapes(model, {{"x", dims}}).at("y").dims, expected);
        const Floats values = valuesOf(y);
        ASSERT_EQ(values.size(), c.y.size());
        for (std::size_t i = 0; i < values.size(); ++i)  // a float's rounding: expected values have six digits
            EXPECT_NEAR(values[i], c.y[i], 1e-5 * std::max(1.0F, std::abs(c.y[i]))) << "element " << i;
    }
}

// What a node says that cannot be evaluated; x has ones.
TEST(Evaluate, RefusesWithTheNodeAndTheReason) {
    const std::pair<const char*, const char*> kRefusals[] = {
        {"(float[1,3] x) => (float[1,3] y) { y = Det(x) }", "(Det): the operator is not known"},
        {"(float[1,3] x) => (float[1,2] y) <float[2] w = {1,2}> { y = Add(x, w) }",
         "(Add): [1, 3] and [2] do not broadcast"},
        {"(float[1,3] x) => (float[2,2] y) <int64[2] s = {2,2}> { y = Reshape(x, s) }",
         "(Reshape): makes [2, 2] of [1, 3], which has another number of elements"},
        {"(float[1,1,3,1] x) => (float[1,1,1,1] y) <float[1,2,1,1] w = {1,2}> { y = Conv(x, w) }",
         "(Conv): weights of shape [1, 2, 1, 1] for an input of [1, 1, 3, 1]"},
        {"(float[1,3] x) => (float[A,A] y) <int64[2] s = {1048576,1048576}> { y = ConstantOfShape(s) }",
         "(ConstantOfShape): makes [1048576, 1048576], more than 268435456 elements"},
        {"(float[1,3] x) => (float[A,B] y) <int64[2] s = {16384,8192}> { y = ConstantOfShape(s) }",
         "(ConstantOfShape): checking needs too much memory for [16384, 8192]: leave the check out by --no-check"},
        {"(float[1,3] x) => (float[1,3] y) <int64 i = {5}> { y = Gather<axis=1>(x, i) }",
         "(Gather): index 5 is outside an extent of 3"},
        {"(float[1,3] x) => (int64[1] y) <int64[1] a = {1}, int64 z = {0}> { y = Div(a, z) }",
         "(Div): divides an integer by 0"},
    };
    for (const auto& [graph, text] : kRefusals) {
        SCOPED_TRACE(graph);
        const convert::Model model = modelOfText(graph);
        const Array x = convert::floatArray(inputsOf(model).at(0).dims, Floats(3, 1));
        convert::GraphOptions options;
        options.memoryBytes = 1 << 30;
        try {
            convert::evaluateGraph(model, {{"x", x}}, options);
            ADD_FAILURE() << "is evaluated";
        } catch (const convert::OnnxError& error) {
            EXPECT_EQ(error.what(), std::string("node that makes 'y' ") + text);
        }
    }
}

// Shapes are known without the values of large tensors, for every batch, where they do not depend on the input's
// values.
TEST(Evaluate, FollowsTheBatchThroughComputedShapes) {
    const convert::Model model = modelOfText(
        "(float[N,3,8,8] x) => (float[N,M] y) <int64 zero = {0}, int64[1] rest = {-1}, int64[1] a = {0}>"
        "{ s = Shape(x) n = Gather(s, zero) u = Unsqueeze(n, a) t = Concat<axis=0>(u, rest) y = Reshape(x, t) }");
    for (const std::int64_t batch : {2, 3}) {
        const auto shapes = convert::evaluateGraphShapes(model, {{"x", {batch, 3, 8, 8}}});
        EXPECT_EQ(shapes.at("y").dims, (Dims{batch, 192}));
        EXPECT_EQ(shapes.at("t").known->ints(), (Dims{batch, -1}));
        EXPECT_FALSE(shapes.at("y").known);
    }
    try {
        convert::evaluateGraphShapes(
            modelOfText("(float[1,3] x) => (float[1,3] y) { s = Cast<to=7>(x) y = Reshape(x, s) }"), {{"x", {1, 3}}});
        ADD_FAILURE() << "is evaluated";
    } catch (const convert::OnnxError& error) {
        EXPECT_STREQ(error.what(), "node that makes 'y' (Reshape): shape depends on the network's input");
    }
}

}  // namespace
