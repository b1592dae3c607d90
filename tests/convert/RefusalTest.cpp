// What the converter says of networks that it cannot convert: all of it at once, and nothing is made.
#include <gtest/gtest.h>

#include "convert/conversion.h"
#include "onnxText.h"

namespace {

struct Refusal {
    const char* graph;
    const char* text;  // "type: why"
    const char* advice = nullptr;
};

std::vector<convert::Finding> refused(const char* graph, const convert::ConvertOptions& options = {}) {
    convert::Model model = convert::modelOf(withWeights(protoOfText(graph)), {});
    convert::takeBranches(model, options);
    const convert::Conversion made = convert::convertModel(model, options);
    EXPECT_EQ(made.file.bytes.empty(), !made.findings.empty());
    return made.findings;
}

// What stands in the way, one after the other: "type: why".
std::vector<std::string> findingsOf(const char* graph, const convert::ConvertOptions& options = {}) {
    std::vector<std::string> texts;
    for (const convert::Finding& finding : refused(graph, options)) texts.push_back(finding.type + ": " + finding.why);
    return texts;
}

// Each of these nodes is refused for one reason, with advice for that reason.
TEST(Refusal, SaysWhyAndWhatToDo) {
    const char kOthers[] = "replace it by operators that converting.md lists, or end the network before it";
    const char kConstant[] = "export with fixed shapes, or without this computation";
    const char kEvaluation[] = "export in evaluation mode";
    const char kShapes[] = "check that the inputs have the shapes that the network was made for; --shape sets them";
    const char kInvalid[] = "ONNX does not allow this: correct the attribute, or export the network anew";
    const char kHost[] = "only floats are computed: leave this to the host";
    const char kCut[] = "end the network before it and leave the rest to the host";
    const Refusal kRefusals[] = {
        {"(float[1,3] x) => (float[1,3] y) { y = Tan(x) }", "Tan: no operation of nolk's does this to [1, 3]", kOthers},
        {"(float[1,3] x, float[1] e) => (float[1,3] y) { y = Pow(x, e) }",
         "Pow: the exponent must not depend on the network's input", kConstant},
        {"(float[1,3] x) => (float[1,3] y) <float e = {0.3}> { y = Pow(x, e) }", "Pow: the exponent 0.300000",
         "use a whole number up to 64, 0.5 or -0.5"},
        {"(float[1,3] x) => (int64[1,3] y) { y = Cast<to=7>(x) }", "Cast: to int64",
         "only casts between floats are supported: leave the rounding to the host"},
        {"(float[1,3,3] x) => (float[1,3] y) { y = Einsum<equation=\"bii->bi\">(x) }", "Einsum: takes a diagonal",
         "replace by a Mul with a constant mask, and a ReduceSum"},
        {"(float[1,3] x) => (float[1,3] y) <int64[2] s = {9000,9000}>"
         "{ a = ConstantOfShape(s) b = ReduceMax<keepdims=0>(a) y = Add(x, b) }",
         "ConstantOfShape: makes [9000, 9000] of constants, which is too large to be computed in advance",
         "store the result in the file instead of computing it"},
        {"(float[1,3] x) => (float[1,3] y) <float b = {0}, float e = {1e9}, float d = {1}>"
         "{ r = Range(b, e, d) m = ReduceMax<keepdims=0>(r) y = Add(x, m) }",
         "Range: range of too many elements", "make the range smaller"},
        {"(float[1,3] x) => (float[1,3] y) { a, b = Relu(x) y = Add(a, b) }",
         "Relu: output 1 is used, which is not converted", "use the first output only"},
        {"(float[1,2,4,4] x) => (float[1,2,2,2] y) { a, b = MaxPool<kernel_shape=[2,2], strides=[2,2]>(x) "
         "c = Cast<to=1>(b) y = Add(a, c) }",
         "MaxPool: the output Indices is used", "replace MaxUnpool by an interpolation or a transposed convolution"},
        {"(float[1,2,4,4] x) => (float[1,2,8,8] y) <float[4] s = {1,1,2,2}, float[8] r = {0,0,0,0,1,1,1,1}>"
         "{ y = Resize<mode=\"linear\", coordinate_transformation_mode=\"tf_crop_and_resize\">(x, r, s) }",
         "Resize: coordinate_transformation_mode tf_crop_and_resize", "use half_pixel, align_corners or asymmetric"},
        {"(float[N,5,4] z) => (float[5,1,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}>"
         "{ x = Transpose<perm=[1,0,2]>(z) y = LSTM<hidden_size=3, clip=1.0>(x, w, r) }",
         "LSTM: clip", "export the LSTM without clip"},
        {"(float[1,2,4,4,4] x) => (float[1,1,3,3,3] y) <float[1,2,2,2,2] w = {0}> { y = Conv(x, w) }",
         "Conv: input of shape [1, 2, 4, 4, 4], instead of 3 or 4 dimensions", "use the 1-D or 2-D form"},
        {"(float[2,2,4,4] x, float[1,1,3,3] z) => (float[2,1,3,3] y) <float[1,2,2,2] w = {0}>"
         "{ a = Conv(x, w) y = Add(a, z) }",
         "Conv: input [2, 2, 4, 4] has a fixed batch of 2", "export with a batch of 1, or with a free batch axis"},
        {"(float[1,2,4] x) => (float[1,2,4] y) <float[2] s = {1,1}> { y, m, v = BatchNormalization<training_mode=1>"
         "(x, s, s, s, s) }",
         "BatchNormalization: training_mode is set", kEvaluation},
        {"(float[1,2,4] x) => (float[1,2,4] w) <float[4] s = {0}>"
         "{ y, m = LayerNormalization(x, s) z = Relu(m) w = Add(y, z) }",
         "LayerNormalization: the outputs Mean or InvStdDev are used", kEvaluation},
        {"(float[1,4] x) => (float[1,4] y) { y = LpNormalization<p=1>(x) }", "LpNormalization: p = 1",
         "write it with Abs, ReduceSum and Div"},
        {"(float[1,4] x, int64[1,2] i) => (float[1,1,2] y) { y = Gather<axis=1>(x, i) }",
         "Gather: the indices depend on the network's input",
         "look the elements up in the host, and let the network begin behind the node"},
        {"(float[1,4] x, bool[1,4] c) => (float[1,4] y) { y = Where(c, x, x) }",
         "Where: the condition must not depend on the network's input", kConstant},
        {"(float[1,1,8,8] x) => (float[1,1,4,4] y) { y = AveragePool<kernel_shape=[2,2], strides=[2,2], "
         "dilations=[2,2]>(x) }",
         "AveragePool: dilations", "replace by a Conv with a constant kernel"},
        {"(float[1,5,4] z) => (float[5,1,1,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}>"
         "{ x = Transpose<perm=[1,0,2]>(z) y = LSTM<hidden_size=3, activations=[\"Tanh\",\"Tanh\",\"Tanh\"]>(x, w, r) "
         "}",
         "LSTM: the activation Tanh", "use the usual activations"},
        {"(float[1,5,4] z) => (float[5,1,1,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}, "
         "float[1,1,3] h = {1,1,1}> { x = Transpose<perm=[1,0,2]>(z) y = LSTM<hidden_size=3>(x, w, r, , , h) }",
         "LSTM: initial_h is not zero", "start from zero states, without peepholes"},
        {"(float[1,5,4] z) => (float[5,1,1,3] y, float[1,1,3] c) <float[1,12,4] w = {0}, float[1,12,3] r = {0}>"
         "{ x = Transpose<perm=[1,0,2]>(z) y, h, c = LSTM<hidden_size=3>(x, w, r) }",
         "LSTM: the output Y_c is used", "use Y or Y_h"},
        {"(float[N,3,5,5] x) => (float[N,4,3,3] y) <float[4,5,3,3] w = {0}> { y = Conv(x, w) }",
         "Conv: weights of shape [4, 5, 3, 3] for an input of [1, 3, 5, 5]", kShapes},
        {"(float[N,3,5,5] x) => (float[N,4,3,3] y) <float[4,3,3,3] w = {0}> { y = Conv<auto_pad=\"FOO\">(x, w) }",
         "Conv: auto_pad 'FOO' is not known", kInvalid},
        {"(float[N,3,5,5] x) => (float[N,3,4,5] y) { y = MaxPool<kernel_shape=[1,1], pads=[-1,0,0,0]>(x) }",
         "MaxPool: pads -1 is not possible", "cut the input by a Slice in front instead"},
        {"(float[N,1,5,5] x) => (float[N,1,304,5] y) <float[1,1,2,1] w = {0}> { y = Conv<pads=[300,0,0,0]>(x, w) }",
         "Conv: convolve: padding top must be 0 to 255 in this file, is 300", "pad by a node Pad in front instead"},
        {"(float[N,3,5] x) => (float[N,1,5] y) <int64[1] i = {7}> { y = Gather<axis=1>(x, i) }",
         "Gather: index 7 is beyond the extent 3",
         "use indices from -3 to 2, or give the input the shape that the network was made for (--shape)"},
        {"(float[N,2] x) => (float[N,2] y) <float[2] e = {1,2}> { y = Pow(x, e) }", "Pow: different exponents",
         "use a Pow of its own for each exponent, and join their results"},
        {"(string[N,2] x) => (float[N,2] y) { y = Cast<to=1>(x) }", "Cast: 'x' holds values of the type string", kHost},
        {"(int64[N,2] x) => (int64[N,2] y) { y = Add(x, x) }",
         "Add: computes with int64 that depends on the network's input", kHost},
        {"(float[N,4] x) => (float[N,0] y) <int64[1] b = {2}, int64[1] a = {1}> { y = Slice(x, b, b, a) }",
         "Slice: an empty result [1, 0]", "remove the node"},
        {"(float[N,3,4] x) => (float[N,3,4] y) { y = Transpose<perm=[0,1,1]>(x) }",
         "Transpose: perm names axis 1 twice", kInvalid},
        {"(float[N,3,4] x) => (float[N,5] y) <int64[2] s = {-1,5}> { y = Reshape(x, s) }",
         "Reshape: shape [-1, 5] does not divide [1, 3, 4]", kShapes},
        {"(float[N,3,4] x) => (int64[N,1,4] y) { y = ArgMax<axis=1>(x) }",
         "ArgMax: no operation of nolk's does this to [1, 3, 4]", kCut},
        {"(float[N,3,4] x) => (uint8[N,3,4] y) <float s = {1}> { y = QuantizeLinear(x, s) }",
         "QuantizeLinear: no operation of nolk's does this to [1, 3, 4]", "export the network before quantisation"},
        {"(float[5,N,4] x) => (float[5,1,N,3] y) <float[1,9,4] w = {0}, float[1,9,3] r = {0}> { y = "
         "GRU<hidden_size=3>(x, w, r) }",
         "GRU: no operation of nolk's does this to [5, 1, 4]", "replace it by an LSTM"},
        {"(float[5,N,4] x) => (float[5,1,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}>"
         "{ y = LSTM<hidden_size=3, input_forget=1>(x, w, r) }",
         "LSTM: input_forget", "export the LSTM without input_forget"},
        {"(float[5,N,4] x) => (float[5,1,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}>"
         "{ y = LSTM<hidden_size=3, direction=\"up\">(x, w, r) }",
         "LSTM: direction 'up' is not known", kInvalid},
        {"(float[5,N,4] x) => (float[5,1,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}, int32[1] l = {4}>"
         "{ y = LSTM<hidden_size=3>(x, w, r, , l) }",
         "LSTM: sequence_lens below the number of steps", "give sequences of one length"},
        {"(float[N,2,4,4] x) => (float[N,2,8,8] y) <float[4] s = {1,1,2,2}>"
         "{ y = Resize<mode=\"linear\", antialias=1>(x, , s) }",
         "Resize: antialias", "export without antialias"},
    };
    for (const Refusal& refusal : kRefusals) {
        SCOPED_TRACE(refusal.graph);
        const std::vector<convert::Finding> findings = refused(refusal.graph);
        ASSERT_EQ(findings.size(), 1U);
        EXPECT_EQ(findings[0].type + ": " + findings[0].why, refusal.text);
        EXPECT_EQ(findings[0].advice, refusal.advice);
    }
}

// What holds for some batches only is no result for any batch.
TEST(Refusal, NamesNodesThatDependOnTheBatch) {
    const Refusal kRefusals[] = {
        {"(float[N,3] x) => (float[N,3] y) <int64 z = {0}, int64 one = {1}>"
         "{ s = Shape(x) n = Gather(s, z) c = Equal(n, one) y = If<then_branch = t () => (float[N,3] r) "
         "{ r = Relu(x) }, else_branch = e () => (float[N,3] r) { r = Neg(x) }>(c) }",
         "If: takes another branch for another batch"},
        {"(float[N,3] x) => (float[N,3] y) <int64 z = {0}>"
         "{ s = Shape(x) n = Gather(s, z) f = Cast<to=1>(n) m = Mul(x, f) y = Relu(m) }",
         "Mul: the values of 'f' change with the batch"},
        {"(float[N,3] x) => (float[N,3] y) <int64 z = {0}, int64 two = {2}, float a = {10}, float b = {1}>"
         "{ s = Shape(x) n = Gather(s, z) c = Greater(n, two) k = Where(c, a, b) y = Mul(x, k) }",
         "Mul: the values of 'k' change with the batch"},
        {"(float[N,3] x) => (float[N,3] y, int64[2] s) { y = Relu(x) s = Shape(x) }",
         "output: the values of 's' change with the batch"},
    };
    for (const Refusal& refusal : kRefusals) {
        SCOPED_TRACE(refusal.graph);
        EXPECT_EQ(findingsOf(refusal.graph), std::vector<std::string>{refusal.text});
    }
}

// A small file does not become a huge model, whatever extents and attributes it has.
TEST(Refusal, KeepsABudgetOfWhatItMakes) {
    const Refusal kRefusals[] = {
        {"(float[1,1,4,4] x) => (float[1,1,10003,10003] y) <float[1,1,2,2] w = {1,2,3,4}>"
         "{ y = ConvTranspose<dilations=[9999,9999]>(x, w) }",
         "ConvTranspose: makes 100000000 floats"},
        {"(float[1,1,4096] x) => (float[1,1,9000] y) <float[3] s = {1,1,2.197265625}>"
         "{ y = Resize<mode=\"cubic\">(x, , s) }",
         "Resize: makes 36864000 floats"},
        {"(float[1,1,1,40000000] x) => (float[1,1,1,40000000] y) <int64[1] b = {-1}, int64[1] e = {-50000000}, "
         "int64[1] a = {3}, int64[1] s = {-1}> { y = Slice(x, b, e, a, s) }",
         "Slice: makes 80000000 floats"},
        {"(float[1,40000000,1] x) => (float[1,40000000,1] y) <float[1] s = {2}>"
         "{ y = GroupNormalization<num_groups=1>(x, s, s) }",
         "GroupNormalization: makes 40000000 floats"},
    };
    for (const Refusal& refusal : kRefusals) {
        SCOPED_TRACE(refusal.graph);
        const std::vector<std::string> findings = findingsOf(refusal.graph);
        ASSERT_EQ(findings.size(), 1U);
        EXPECT_EQ(findings[0].rfind(refusal.text, 0), 0U) << findings[0];
    }
    // Many nodes that share weights each get a copy of their own, of which 100 fit.
    std::string nodes;
    std::string last = "x";
    for (int i = 0; i < 200; ++i) {
        const std::string next = "t" + std::to_string(i);
        nodes += next + " = Conv<pads=[" + std::to_string(i % 2) + ",0,0,0]>(" + last + ", w) ";
        last = next;
    }
    const std::string graph = "(float[1,600,1,1] x) => (float[1,600,101,1] y) <float[600,600,1,1] w = {0}> { " + nodes +
                              "y = Relu(" + last + ") }";
    const std::vector<std::string> findings = findingsOf(graph.c_str());
    EXPECT_GT(findings.size(), 90U);
    EXPECT_LT(findings.size(), 110U);
}

// Whatever does not fit into a file is told at once, with the operators that are missing.
TEST(Refusal, NamesEveryNodeThatDoesNotFitIntoTheFile) {
    const char kNodes[] =
        "{ a = Conv<strides=[1,40000]>(x, w) b = MaxPool<kernel_shape=[1,40000]>(x) c = Conv<strides=[1,32767]>(x, w) "
        "d = Sin(x) e = Conv<strides=[1,50000]>(d, w) }";
    const std::string graph = std::string(
                                  "(float[1,1,1,70000] x) => (float[1,1,1,2] a, float[1,1,1,30001] b, "
                                  "float[1,1,1,3] c, float[1,1,1,2] e) <float[1,1,1,1] w = {0}>") +
                              kNodes;
    EXPECT_EQ(findingsOf(graph.c_str()),
              (std::vector<std::string>{"Sin: no operation of nolk's does this to [1, 1, 1, 70000]",
                                        "Conv: convolve: stride w must be -32768 to 32767 in this file, is 40000",
                                        "MaxPool: maxPool: kernel w must be -32768 to 32767 in this file, is 40000",
                                        "Conv: convolve: stride w must be -32768 to 32767 in this file, is 50000"}));
    convert::ConvertOptions options;
    options.version = 1;
    EXPECT_EQ(
        findingsOf("(float[1,1,1,70000] x) => (float[1,1,70000,1] y) { y = Transpose<perm=[0,1,3,2]>(x) }", options)
            .size(),
        2U);
}

// A node whose result nobody can compute hides nothing where the file tells the result's shape, and is counted where it
// does not.
TEST(Refusal, LooksBehindNodesThatCannotBeEvaluated) {
    const char kBehind[] = "{ a = Nothing(x) y = LSTM<hidden_size=3, clip=1.0>(a, w, r) z = Relu(a) }";
    const std::string tensors = "(float[N,5,4] x) => (float[5,1,N,3] y, float[5,N,4] z) <float[1,12,4] w = {0}, ";
    const std::string both = tensors + "float[1,12,3] r = {0}, float[5,1,4] a>" + kBehind;
    EXPECT_EQ(findingsOf(both.c_str()),
              (std::vector<std::string>{"Nothing: no operation of nolk's does this to [1, 5, 4]", "LSTM: clip"}));
    const std::string one = tensors + "float[1,12,3] r = {0}>" + kBehind;
    const convert::Conversion made = convert::convertModel(convert::modelOf(withWeights(protoOfText(one)), {}), {});
    EXPECT_EQ(made.findings.size(), 1U);
    EXPECT_EQ(made.unseenNodes, 2);
}

// Of some operators that are refused the shapes are known, whatever the file declares.
TEST(Refusal, JudgesNodesBehindKnownShapes) {
    const char kGraph[] =
        "(float[N,5,8,8] x, float[N,4,4,2] g) => (float[N,1,1,1] y, float[N,5,4,2] z)"
        "<int64[1] k = {2}, float e = {0.3}>"
        "{ a = GridSample(x, g) b, i = TopK(a, k) y = ReduceMax<axes=[1,2,3]>(b) z = Pow(b, e) }";
    EXPECT_EQ(findingsOf(kGraph), (std::vector<std::string>{"GridSample: no operation of nolk's does this to "
                                                            "[1, 5, 8, 8], [1, 4, 4, 2]",
                                                            "TopK: no operation of nolk's does this to [1, 5, 4, 4]",
                                                            "Pow: the exponent 0.300000"}));
}

// A model that is refused as a whole: all faults of a kind are in one line.
TEST(Refusal, NamesAllFaultsOfTheFileAtOnce) {
    struct Row {
        const char* graph;
        std::map<std::string, convert::Dims> shapes;
        const char* text;
    };
    const char kFree[] =
        "(float[N,3,H,W] x, float[N,M] z) => (float[N,3,H,W] y, float[N,M] v) { y = Relu(x) v = Relu(z) }";
    const char kSequence[] =
        "(float[T,X,3] x) => (float[T,1,1,2] y) <float[1,8,3] w = {0}, float[1,8,2] wr = {0}>"
        "{ y = LSTM<hidden_size=2>(x, w, wr) }";
    const Row kRows[] = {
        {kFree, {}, "inputs have free extents: fix them by --shape x=1,3,N,N --shape z=1,N, with numbers for N"},
        {kFree, {{"x", {1, 3, 4, 5}}, {"z", {1, 2}}}, ""},
        {kFree,
         {{"x", {1, 3, 4}}, {"nothing", {1}}, {"w", {1}}},
         "--shape: no input is named 'nothing'; the model has 'x', 'z'; no input is named 'w'; the model has 'x', 'z'; "
         "input 'x' has 4 dimensions, not 3: --shape x=N,3,N,N, with numbers for N"},
        {"(float[A,C] x) => (float[A,C] y) { y = Relu(x) }",
         {},
         "inputs have free extents: fix them by --shape x=1,N, with numbers for N and 1 for the batch, wherever that "
         "is"},
        {kSequence, {}, "inputs have free extents: fix them by --shape x=N,1,3, with numbers for N"},
        {"(float[T,batch,3] x) => (float[T,batch,3] y) { y = Relu(x) }",
         {},
         "inputs have free extents: fix them by --shape x=N,1,3, with numbers for N"},
        {"(float[T,1,3] x) => (float[T,1,1,2] y) <float[1,8,3] w = {0}, float[1,8,2] wr = {0}>"
         "{ y = LSTM<hidden_size=2>(x, w, wr) }",
         {},
         "node 'y' (LSTM) works along the free extent of input 'x', which is no batch: fix it by --shape x=N,1,3, with "
         "numbers for N"},
        {"(float[1,3] x) => (float[1,3] y, float[1,3] u) { a = Add(x, b) y = Add(a, c) }",
         {},
         "node that makes 'a' (Add): nothing makes 'b'; node that makes 'y' (Add): nothing makes 'c'; output of the "
         "graph: nothing makes 'u'; the file is damaged, export the network anew"},
        {"(float[1,3] x, float[1,3] x) => (float[1,3] y) { y = Relu(x) y = Abs(x) }",
         {},
         "two inputs are named 'x'; node that makes 'y' (Abs): another node or input makes 'y'; the file is damaged, "
         "export the network anew"},
        {"(float[1,3] x) => (float[1,3] y) { a = Add(x, b) b = Relu(a) y = Relu(b) }",
         {},
         "node that makes 'a' (Add): is part of a cycle or behind one; the file is damaged, export the network anew"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.text);
        convert::ConvertOptions options;
        options.shapes = row.shapes;
        std::string text;
        try {
            convert::convertModel(convert::modelOf(withWeights(protoOfText(row.graph)), {}), options);
        } catch (const convert::OnnxError& error) {
            text = error.what();
        }
        EXPECT_EQ(text, row.text);
    }
}

}  // namespace
