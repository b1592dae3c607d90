// Small graphs through the whole converter: the file's results equal the evaluator's for a batch of 1 and of 2.
#include <gtest/gtest.h>

#include "convert/check/check.h"
#include "convert/conversion.h"
#include "onnxText.h"

namespace {

// One network each, of operators that have an input in common.
struct Case {
    const char* graph;
    int opset = kUsualOpset;
};

const Case kCases[] = {
    // Windows.
    {R"((float[N,4,7,6] x) => (float[N,4,4,3] a, float[N,8,7,6] b, float[N,3,4,3] c, float[N,3,7,6] d,
                               float[N,2,14,12] e, float[N,6,14,12] f)
        <float[4,4,3,2] wa = {0}, float[4] ba = {0}, float[8,1,3,3] wb = {0}, float[3,4,2,2] wc = {0},
         float[4,2,2,2] we = {0}, float[2] be = {0}, float[4,3,3,3] wf = {0}, float[6] bf = {0}>
        { a = Conv<strides=[2,2], pads=[1,0,1,1]>(x, wa, ba)
          b = Conv<group=4, pads=[1,1,1,1]>(x, wb)
          c = Conv<auto_pad="SAME_UPPER", strides=[2,2]>(x, wc)
          d = Conv<auto_pad="SAME_LOWER">(x, wc)
          e = ConvTranspose<strides=[2,2]>(x, we, be)
          f = ConvTranspose<strides=[2,2], group=2, dilations=[2,1], pads=[2,1,2,1], output_padding=[1,1]>(x, wf, bf)
        })"},
    {R"((float[N,4,9] x) => (float[N,6,7] a, float[N,3,18] b, float[N,4,4] c)
        <float[6,2,3] wa = {0}, float[4,3,4] wb = {0}>
        { a = Conv<group=2, pads=[1,1], dilations=[2]>(x, wa)
          b = ConvTranspose<strides=[2], pads=[1,1]>(x, wb)
          c = AveragePool<kernel_shape=[2], strides=[2]>(x) })"},
    {R"((float[N,2,6,7] x) => (float[N,2,3,4] a, float[N,2,4,5] b, float[N,2,3,4] c, float[N,2,3,4] d, float[N,2,3,4] e,
                               float[N,2,1,1] f)
        { a = MaxPool<kernel_shape=[3,2], strides=[2,2], ceil_mode=1>(x)
          b = MaxPool<kernel_shape=[3,3], pads=[1,1,1,1], dilations=[2,2]>(x)
          c = AveragePool<kernel_shape=[3,3], strides=[2,2], pads=[1,1,1,1]>(x)
          d = AveragePool<kernel_shape=[3,3], strides=[2,2], pads=[1,1,1,1], count_include_pad=1>(x)
          e = AveragePool<kernel_shape=[2,2], strides=[2,2], ceil_mode=1>(x)
          g = GlobalAveragePool(x) h = GlobalMaxPool(x) f = Sub(g, h) })"},

    // Activations; some are written out.
    {R"((float[N,3,4,5] x) => (float[N,3,4,5] y, float[N,3,4,5] z)
        { a = Relu(x) b = LeakyRelu<alpha=0.2>(x) c = Sigmoid(x) d = Tanh(x) e = Exp(x) f = Abs(x)
          g = HardSigmoid<alpha=0.3, beta=0.4>(x) h = Neg(x) i = Reciprocal(c) y = Sum(a, b, c, d, e, f, g, h, i)
          k = Elu<alpha=0.5>(x) l = Selu(x) m = Celu<alpha=0.5>(x) n = Softsign(x) o = HardSwish(x)
          z = Sum(k, l, m, n, o) })"},
    {R"((float[N,5,60] x) => (float[N,30,60] y, float[N,5,60] z)
        <float f = {30}, float g = {3}, float r = {1.4142135}, float one = {1}, float half = {0.5}>
        { t = Mul(x, f) a = Elu<alpha=0.5>(t) b = Selu(t) c = Celu<alpha=0.5>(t) d = Softsign(t)
          u = Mul(x, g) h = Gelu(u) i = Gelu<approximate="tanh">(u) y = Concat<axis=1>(a, b, c, d, h, i)
          k = Div(x, r) l = Erf(k) m = Add(l, one) n = Mul(x, m) z = Mul(n, half) })",
     20},
    {R"((float[N,3,5,5] x) => (float[N,3,5,5] y, float[N,3,5,5] z, float[N,3,5,5] p, float[N,3,5,5] q, float[N,3,5,5] s)
        <float three = {3}, float zero = {0}, float six = {6}, float[3,1,1] w = {0}, float[1] w1 = {0}>
        { a = Add(x, three) b = Clip(a, zero, six) c = Mul(x, b) y = Div(c, six)
          d = Sigmoid(x) z = Mul(x, d)
          p = PRelu(x, w) q = PRelu(x, w1)
          e = Softmax<axis=1>(x) f = Softmax<axis=2>(e) s = Softmax<axis=3>(f) })"},
    {R"((float[N,3,4,5] x) => (float[N,3,4,5] y, float[N,3,4,5] z)
        { y = Softmax<axis=1>(x) z = Clip<min=-0.5, max=0.5>(x) })",
     9},

    // Elements.
    {R"((float[N,3,4,5] x) => (float[N,3,4,5] y, float[N,3,4,5] z)
        <float[3,1,1] wa = {0}, float[5] wb = {0}, float[4,1] wc = {0}, float[1,1,4,5] wv = {0}>
        { a = Add(x, wa) b = Mul(wb, a) c = Sub(wc, b) y = Div(c, wv)
          d = ReduceMean<axes=[3]>(x) e = ReduceMax<axes=[2]>(x) f = Sub(d, e) z = Mul(f, x) })"},
    {R"((float[N,4,5] x) => (float[N,2,4,5] y) <float[1,2,4,5] w = {0}, int64[1] a = {1}>
        { u = Unsqueeze(x, a) y = Sub(w, u) })"},
    {R"((float[N,6] x) => (float[N,6] y, float[N,6] z, float[N,6] t, float[N,6] u, float[N,6] v)
        <float[6] w = {0}, float one = {1}, float two = {2}, float three = {3}, float half = {0.5}>
        { a = Neg(x) b = Max(x, a, w) c = Min(x, w) d = Sum(b, c, x) y = Mean(d, a)
          p = Pow(x, two) z = Sub(p, x)
          s = Sub(one, x) e = Exp(s) t = Div(three, e)
          u = PRelu(x, w) v = Clip(x, , half) })"},

    // Normalizations.
    {R"((float[N,3,4,5] x) => (float[N,3,4,5] y, float[N,4,4,5] z, float[N,4,4,5] t, float[N,3,4,5] u)
        <float[3] w = {0}, float[3] wv = {0.5,1,1.5}, float[4,3,1,1] wk = {0}, float[4] w4 = {0},
         float[4] v4 = {1,2,3,1}, float[1,4,1,1] f = {0}, float[4,1,1] b = {0}>
        { y = BatchNormalization<epsilon=0.01>(x, w, w, w, wv)
          c = Conv(x, wk) z = BatchNormalization(c, w4, w4, w4, v4)
          d = Conv(x, wk) e = Mul(d, f) t = Add(e, b)
          u = InstanceNormalization(x, w, w) })"},
    {R"((float[N,3] x, float[N,3,9] z) => (float[N,3] y, float[N,3,9] t) <float[3] w = {0}, float[3] wv = {0}>
        { y = BatchNormalization(x, w, w, w, wv) t = InstanceNormalization(z, w, w) })"},
    {R"((float[N,5,8] x, float[N,2,5,8] u) => (float[N,5,8] y, float[N,5,8] z, float[N,2,5,8] t)
        <float two = {2}, float e = {0.00001}, float[8] w = {0}, float[8] wb = {0}>
        { y = LayerNormalization(x, w, wb) t = LayerNormalization(u, w)
          m = ReduceMean<axes=[-1]>(x) d = Sub(x, m) q = Pow(d, two) v = ReduceMean<axes=[-1]>(q) a = Add(v, e)
          s = Sqrt(a) n = Div(d, s) k = Mul(n, w) z = Add(k, wb) })"},
    {R"((float[N,6] x) => (float[N,6] y) <float e = {0.000000000001}, int64[2] s = {0,6}>
        { n = ReduceL2<axes=[1]>(x) c = Clip(n, e) t = Shape(x) b = Expand(c, t) y = Div(x, b) })"},

    // Shapes. The first has the batch of 1 within; the next uses its input often, and computes a shape.
    {"(float[N,3,4,5] x) => (float[N,60] y) <int64[2] s = {1,60}> { y = Reshape(x, s) }"},
    {R"((float[N,3,4,5] x) => (float[N,60] y, float[N,3,20] z, float[N,5,3,4] u)
        <int64[2] s = {-1,60}, int64 zero = {0}, int64[1] axis = {0}, int64[2] r = {3,-1}>
        { a = Reshape(x, s) b = Flatten(x) c = Sigmoid(x) d = Flatten(c) e = Mul(a, b) y = Add(e, d)
          f = Shape(x) n = Gather(f, zero) g = Unsqueeze(n, axis) t = Concat<axis=0>(g, r) z = Reshape(x, t)
          h = Transpose<perm=[0,2,3,1]>(x) i = Relu(h) u = Transpose<perm=[0,2,3,1]>(i) })"},
    {R"((float[N,3,1,5] x) => (float[N,1,3,5] y) <int64[1] a = {2}, int64[1] b = {1}>
        { s = Squeeze(x, a) y = Unsqueeze(s, b) })"},
    {R"((float[N,7,6,5] x) => (float[N,3,2,3] y)
        <int64[3] a = {1,-1,0}, int64[3] e = {7,0,9}, int64[3] k = {1,2,3}, int64[3] s = {2,-3,2}>
        { y = Slice(x, a, e, k, s) })"},
    {R"((float[N,7,3] x) => (float[N,7,3] y, float[N,4,3] z, float[N,3] t)
        <int64[3] s = {2,1,4}, int64[4] i = {4,0,0,2}, int64 last = {-1}>
        { a, b, c = Split<axis=1>(x, s) d = Relu(a) y = Concat<axis=1>(c, b, d)
          z = Gather<axis=1>(x, i) t = Gather<axis=1>(x, last) })"},
    {"(float[N,2,3,4] x) => (float[N,5,4,6] y) <int64[8] p = {0,1,0,2,0,2,1,0}> { y = Pad(x, p) }"},
    {R"((float[N,1,3] x) => (float[N,2,6] y) <int64[3] s = {1,2,1}, int64[3] r = {1,1,2}>
        { e = Expand(x, s) y = Tile(e, r) })"},
    {R"((float[N,8,3,4] x, float[N,2,4,6] z) => (float[N,2,6,8] y, float[N,2,6,8] t, float[N,8,2,3] u)
        { y = DepthToSpace<blocksize=2>(x) t = DepthToSpace<blocksize=2, mode="CRD">(x)
          u = SpaceToDepth<blocksize=2>(z) })"},
    {R"((float[N,6,3,4] x, float[N,24,5] z) => (float[N,6,3,4] y, float[N,4,10,3] u)
        <int64[5] s = {0,2,3,3,4}, int64[4] t = {0,6,3,4}, int64[5] r = {0,2,3,4,5}, int64[4] q = {0,4,10,3}>
        { a = Reshape(x, s) b = Transpose<perm=[0,2,1,3,4]>(a) y = Reshape(b, t)
          c = Reshape(z, r) d = Transpose<perm=[0,3,1,4,2]>(c) u = Reshape(d, q) })"},
    {R"((float[N,4] x, float[N,5] unused, float[N,2,2] b, float[N,4] shape)
        => (float[N,4] y, float[N,4] z, float[N,4] t, float[N,4] y)
        { s = Shape(shape) r = Reshape(b, s) y = Sub(x, r) z = Mul(y, x) t = Identity(z) })"},
    {R"((float[N,4] x) => (float[N,4] y, float[1,3] k, float[2,2] l)
        <float[1,3] a = {1,2,3}, float[2,2] b = {1,2,3,4}> { y = Relu(x) k = Neg(a) l = Neg(b) })"},
    {R"((float[N,3] x) => (float[N,3] y) <bool[3] c = {1,0,1}, float[1] one = {1}, float zero = {0}, float none = {0}>
        { l = Div(one, zero) m = Neg(l) e = Pow(x, none) a = Where(c, x, m) y = Add(a, e) })"},
    {"(float[1,3,4,4] x, float[1,4,4] z) => (float[1,3,4,4] y) { y = Mul(x, z) }"},  // a batch, or channels
    {R"((float[N,3,4] x) => (float[N,3,4] y)
        <int64[2] r = {3,4}, int64 z = {0}, int64[1] a = {0}, float[1,1,4] w = {0}>
        { s = Shape(x) n = Gather(s, z) u = Unsqueeze(n, a) t = Concat<axis=0>(u, r) e = Expand(w, t)
          y = Add(x, e) })"},
    {R"((float[N,3,4] x) => (float[N,3,4] y)
        { c = Dropout(x) b = Identity(c) y = Relu(b) d = NonMaxSuppression(x, x) e = Reshape(x, d) })"},

    // Sums.
    {R"((float[N,6] x) => (float[N,3] y, float[N,3] z) <float[3,6] w = {0}, float[3] wb = {0}, float[6,3] wt = {0}>
        { y = Gemm<transB=1, alpha=0.5, beta=2.0>(x, w, wb) z = Gemm(x, wt) })"},
    {R"((float[N,5,6] x) => (float[N,5,3] y, float[N,3,6] z, float[N,7,5] t)
        <float[6,3] w = {0}, float[3,5] wl = {0}, float[6,2,3] we = {0}, float[2,3,7] wf = {0}>
        { y = MatMul(x, w) z = MatMul(wl, x)
          a = Einsum<equation="bid, dhk -> bhik">(x, we) t = Einsum<equation="bhik,hkc->bci">(a, wf) })"},
    {R"((float[N,2,5,6] x) => (float[N,2,5,5] y, float[N,2,5,3] z) <float[2,6,3] w = {0}>
        { t = Transpose<perm=[0,1,3,2]>(x) y = MatMul(x, t) z = MatMul(x, w) })"},
    {"(float[N,5,2,3] x) => (float[N,2,5,5] y) { y = Einsum<equation=\"bihd,bjhd->bhij\">(x, x) }"},
    {R"((float[N,3,4] x) => (float[N,6] y) <float[4,5] w = {0}, float[5,6] wx = {0}>
        { y = Einsum<equation="bij,jk,kl->bl">(x, w, wx) })"},
    {R"((float[N,3,4,5] x) => (float[N,1,1,1] y, float[N,4] z, float[N,4,3] t)
        <float[4,5] w = {0}, int64[2] s = {1,3}>
        { a = ReduceMax<axes=[1]>(x) b = ReduceMin<axes=[2]>(a) c = ReduceL1<axes=[3]>(b)
          d = ReduceMean<axes=[1,2,3]>(x) e = ReduceL2<axes=[-1,-2,-3]>(x) f = ReduceSumSquare<axes=[1,2,3]>(x)
          y = Sum(c, d, e, f) z = ReduceSum<keepdims=0>(x, s) t = Einsum<equation="...chw,hw->...hc">(x, w) })"},
    {R"((float[N,5,12] x) => (float[N,5,12] y)
        <float[12,36] w = {0}, int64[5] s = {0,0,3,2,6}, int64 i = {0}, int64 j = {1}, int64 k = {2},
         int64[3] t = {0,0,12}, float f = {0.4}>
        { p = MatMul(x, w) r = Reshape(p, s) q = Transpose<perm=[2,0,3,1,4]>(r)
          a = Gather<axis=0>(q, i) b = Gather<axis=0>(q, j) c = Gather<axis=0>(q, k)
          d = Transpose<perm=[0,1,3,2]>(b) e = MatMul(a, d) g = Mul(e, f) h = Softmax<axis=-1>(g)
          l = MatMul(h, c) m = Transpose<perm=[0,2,1,3]>(l) y = Reshape(m, t) })"},

    // An If whose condition follows from shapes, with one inside that a constant decides.
    {R"((float[N,4,1,5] x) => (float[N,4,5] y) <int64 i = {2}, int64 one = {1}, bool no = {0}>
        { s = Shape(x) e = Gather(s, i) c = Equal(e, one)
          z = If<then_branch = t () => (float[N,4,5] r) <int64[1] a = {2}>
              { q = If<then_branch = u () => (float[N,4,1,5] v) { v = Neg(x) },
                       else_branch = w () => (float[N,4,1,5] v) { v = Relu(x) }>(no) r = Squeeze(q, a) },
              else_branch = f () => (float[N,4,1,5] r) { r = Identity(x) }>(c)
          y = Add(z, z) })"},

    // Sequences.
    {R"((float[N,7,4] x, float[7,N,4] z) => (float[N,7,3] y, float[7,N,3] u, float[7,N,3] v)
        <float[1,12,4] w = {0}, float[1,12,3] wr = {0}, float[1,24] wb = {0}, int64[1] a = {1}>
        { t = Transpose<perm=[1,0,2]>(x) h = LSTM<hidden_size=3>(t, w, wr, wb) s = Squeeze(h, a)
          y = Transpose<perm=[1,0,2]>(s)
          i = LSTM<hidden_size=3, direction="reverse">(t, w, wr) u = Squeeze(i, a)
          k = LSTM<hidden_size=3>(z, w, wr) v = Squeeze(k, a) })"},
    {R"((float[N,4,7] x) => (float[7,N,6] y)
        <float[2,12,4] w = {0}, float[2,12,3] wr = {0}, float[2,24] wb = {0}, float[2,12,6] wx = {0},
         float[2,12,3] ws = {0}, int64[3] d = {0,0,-1}>
        { t = Transpose<perm=[2,0,1]>(x) h = LSTM<hidden_size=3, direction="bidirectional">(t, w, wr, wb)
          p = Transpose<perm=[0,2,1,3]>(h) r = Reshape(p, d)
          g = LSTM<hidden_size=3, direction="bidirectional">(r, wx, ws) q = Transpose<perm=[0,2,1,3]>(g)
          y = Reshape(q, d) })"},

    // Resizes. In opset 10, scales are rounded quotients.
    {R"((float[N,2,3,4] x) => (float[N,2,6,12] a, float[N,2,6,8] b, float[N,2,5,9] c, float[N,2,5,9] d)
        <float[4] s = {1,1,2,3}, float[4] t = {1,1,2,2}, int64[4] u = {1,2,5,9}>
        { a = Resize<coordinate_transformation_mode="asymmetric", nearest_mode="floor">(x, , s)
          b = Resize(x, , t)
          c = Resize<mode="linear">(x, , , u)
          d = Resize<mode="linear", coordinate_transformation_mode="align_corners">(x, , , u) })"},
    {R"((float[N,2,6,7] x) => (float[N,2,12,12] y) <int64[2] s = {12,10}, int64[2] r = {9,13}>
        { a = Resize<mode="linear", axes=[2,3], keep_aspect_ratio_policy="not_larger">(x, , , s)
          y = Resize<mode="linear", axes=[-2,-1], keep_aspect_ratio_policy="not_smaller">(a, , , r) })",
     18},
    {R"((float[N,1,10,10] x, float[N,2,3,4] z) => (float[N,1,12,19] y, float[N,2,6,8] t)
        <float[4] s = {1,1,1.2,1.9}, float[4] d = {1,1,2,2}> { y = Resize(x, s) t = Resize(z, d) })",
     10},
    {"(float[N,2,3,4] x) => (float[N,2,6,8] y) { y = Upsample<scales=[1.0,1.0,2.0,2.0]>(x) }", 7},
};

TEST(Convert, GivesTheGraphsResults) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.graph);
        convert::Model model = convert::modelOf(withWeights(protoOfText(c.graph, c.opset)), {});
        convert::takeBranches(model, convert::ConvertOptions{});
        const convert::Conversion made = convert::convertModel(model, {});
        for (const convert::Finding& finding : made.findings)
            ADD_FAILURE() << finding.node << " (" << finding.type << "): " << finding.why;
        if (!made.findings.empty()) continue;
        for (const auto& finding : nolk::checkModel(made.file.bytes.data(), made.file.bytes.size()).findings)
            ADD_FAILURE() << nolk::describe(finding);
        const convert::CheckResult result = convert::check(model, made.file, convert::checkOptionsFor(model, {}, made));
        EXPECT_EQ(result.failure, "");
        for (const convert::OutputDifference& output : result.outputs) EXPECT_LT(output.relative, 2e-6) << output.name;
    }
}

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
        convert::Dims sample;
        convert::Dims given = {};  // by --shape
    };
    const char* kLastState =
        "(float[20,batch,3] x) => (float[batch,4] y) <float[1,16,3] w = {0}, float[1,16,4] wr = {0}, int64[1] a = {0}>"
        "{ q, h = LSTM<hidden_size=4>(x, w, wr) y = Squeeze(h, a) }";
    const char* kMean = "(float[20,N,4] x) => (float[N,4] y) { y = ReduceMean<axes=[0], keepdims=0>(x) }";
    const Row kRows[] = {
        {kLastState, {20, 1, 3}},
        {kLastState, {20, 1, 3}, {20, 1, 3}},
        {kMean, {20, 1, 4}},
        {kMean, {20, 1, 4}, {20, 1, 4}},
        {"(float[T,N,4] x) => (float[N,4] y) { y = ReduceMean<axes=[0], keepdims=0>(x) }", {20, 1, 4}, {20, 1, 4}},
        {R"((float[20,N,4] x) => (float[N,20,4] y)
            { b = Transpose<perm=[1,0,2]>(x) t = Transpose<perm=[0,2,1]>(b) s = MatMul(b, t) p = Softmax(s)
              y = MatMul(p, b) })",
         {20, 1, 4}},
        {R"((float[20,N,4] x, float[20,N,4] z) => (float[N,20,4] y) { q = Add(x, z) y = Transpose<perm=[1,0,2]>(q) })",
         {20, 1, 4}},
        {R"((float[20,4] x) => (float[5,4] y) <int64[1] b = {-5}, int64[1] e = {99}, int64[1] a = {0}>
            { y = Slice(x, b, e, a) })",
         {20, 4}},
        {R"((float[7,1,4] x) => (float[7,1,3] y) <float[1,12,4] w = {0}, float[1,12,3] wr = {0}, int64[1] a = {1}>
            { h = LSTM<hidden_size=3>(x, w, wr) y = Squeeze(h, a) })",
         {7, 1, 4}},
        {R"((float[7,3,5] x) => (float[7,3,5] y)
            { t = Transpose<perm=[1,2,0]>(x) p = MaxPool<kernel_shape=[3], pads=[1,1]>(t)
              y = Transpose<perm=[2,0,1]>(p) })",
         {7, 3, 5}},
        {R"((float[7,4] x) => (float[7,4] y)
            <int64[1] b = {99}, int64[1] e = {-99}, int64[1] a = {0}, int64[1] s = {-1}> { y = Slice(x, b, e, a, s) })",
         {7, 4}},
        {R"((float[7,4] x) => (float[7,4] y)
            <int64[1] b = {99}, int64[1] e = {-99}, int64[1] a = {1}, int64[1] s = {-1}> { y = Slice(x, b, e, a, s) })",
         {1, 4}},
        {"(float[5,3,4] x) => (float[5,3,4] y) { y = Relu(x) }", {1, 3, 4}},
        {"(float[N,3,4] x) => (float[N,3,4] y) { y = Relu(x) }", {1, 3, 4}, {5, 3, 4}},
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
