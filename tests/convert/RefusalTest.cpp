// What the converter says of networks that it cannot convert: all of it at once, and nothing is made.
#include <gtest/gtest.h>

#include <algorithm>

#include "convert/conversion.h"
#include "onnxText.h"

namespace {

struct Refusal {
    const char* graph;
    const char* text;  // "type: why"
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

// Nodes that are refused for one reason each, with advice for that reason. Other nodes only use their results.
TEST(Refusal, SaysWhyAndWhatToDo) {
    const char kOthers[] = "replace it by operators that converting.md lists, or end the network before it";
    const char kConstant[] = "export with fixed shapes, or without this computation";
    const char kEvaluation[] = "export in evaluation mode";
    const char kShapes[] = "check that the inputs have the shapes that the network was made for; --shape sets them";
    const char kInvalid[] = "ONNX does not allow this: correct the attribute, or export the network anew";
    const char kHost[] = "only floats are computed: leave this to the host";
    const struct {
        const char* graph;
        std::vector<std::pair<std::string, std::string>> findings;  // "type: why" and the advice, by the alphabet
    } kRows[] = {
        {R"((float[1,3] x, float[1] e) => (float[1,3] y, float[1,3] z, float[1,3] t, int64[1,3] u, float[1,3] v,
                                           float[1,3] w, float[1,3] q)
            <float p = {0.3}, int64[2] s = {9000,9000}, float b = {0}, float l = {1e9}, float d = {1}>
            { y = Tan(x) z = Pow(x, e) t = Pow(x, p) u = Cast<to=7>(x)
              f, g = Relu(x) v = Add(f, g)
              h = ConstantOfShape(s) i = ReduceMax<keepdims=0>(h) w = Add(x, i)
              r = Range(b, l, d) m = ReduceMax<keepdims=0>(r) q = Add(x, m) })",
         {{"Cast: to int64", "only casts between floats are supported: leave the rounding to the host"},
          {"ConstantOfShape: makes [9000, 9000] of constants, which is too large to be computed in advance",
           "store the result in the file instead of computing it"},
          {"Pow: the exponent 0.300000", "use a whole number up to 64, 0.5 or -0.5"},
          {"Pow: the exponent must not depend on the network's input", kConstant},
          {"Range: range of too many elements", "make the range smaller"},
          {"Relu: output 1 is used, which is not converted", "use the first output only"},
          {"Tan: no operation of nolk's does this to [1, 3]", kOthers}}},
        {R"((float[1,3,3] x) => (float[1,3] y, float[1,3] z)
            { y = Einsum<equation="bii->bi">(x) z = Einsum<equation="bi->b">(x) })",
         {{"Einsum: equation 'bi->b': 'bi' does not fit an input of shape [1, 3, 3]",
           "correct the equation, or the shapes of its operands"},
          {"Einsum: takes a diagonal", "replace by a Mul with a constant mask, and a ReduceSum"}}},
        {R"((float[1,2,4,4] x) => (float[1,2,2,2] y, float[1,2,8,8] z, float[1,2,8,8] t)
            <float[4] s = {1,1,2,2}, float[8] r = {0,0,0,0,1,1,1,1}>
            { a, b = MaxPool<kernel_shape=[2,2], strides=[2,2]>(x) c = Cast<to=1>(b) y = Add(a, c)
              z = Resize<mode="linear", coordinate_transformation_mode="tf_crop_and_resize">(x, r, s)
              t = Resize<mode="linear", antialias=1>(x, , s) })",
         {{"MaxPool: the output Indices is used", "replace MaxUnpool by an interpolation or a transposed convolution"},
          {"Resize: antialias", "export without antialias"},
          {"Resize: coordinate_transformation_mode tf_crop_and_resize",
           "use half_pixel, align_corners or asymmetric"}}},
        {R"((float[1,2,4,4,4] x) => (float[1,1,3,3,3] y) <float[1,2,2,2,2] w = {0}> { y = Conv(x, w) })",
         {{"Conv: input of shape [1, 2, 4, 4, 4], instead of 3 or 4 dimensions", "use the 1-D or 2-D form"}}},
        {R"((float[2,2,4,4] x, float[1,1,3,3] z) => (float[2,1,3,3] y) <float[1,2,2,2] w = {0}>
            { a = Conv(x, w) y = Add(a, z) })",
         {{"Conv: input [2, 2, 4, 4] has a fixed batch of 2", "export with a batch of 1, or with a free batch axis"}}},
        {R"((float[1,2,4] x, int64[1,2] i, bool[1,2,4] c)
            => (float[1,2,4] y, float[1,2,4] z, float[1,2,4] t, float[1,1,2,4] u, float[1,2,4] w)
            <float[2] s = {1,1}, float[4] f = {0}>
            { y, m, v = BatchNormalization<training_mode=1>(x, s, s, s, s)
              a, n = LayerNormalization(x, f) b = Relu(n) z = Add(a, b)
              t = LpNormalization<p=1>(x) u = Gather<axis=1>(x, i) w = Where(c, x, x) })",
         {{"BatchNormalization: training_mode is set", kEvaluation},
          {"Gather: the indices depend on the network's input",
           "look the elements up in the host, and let the network begin behind the node"},
          {"LayerNormalization: the outputs Mean or InvStdDev are used", kEvaluation},
          {"LpNormalization: p = 1", "write it with Abs, ReduceSum and Div"},
          {"Where: the condition must not depend on the network's input", kConstant}}},
        {R"((float[5,N,4] x) => (float[5,1,N,3] a, float[5,1,N,3] b, float[5,1,N,3] c, float[5,1,N,3] d,
                                 float[5,1,N,3] e, float[5,1,N,3] f, float[5,1,N,3] g, float[1,N,3] i, float[5,1,N,3] j)
            <float[1,12,4] w = {0}, float[1,12,3] r = {0}, int32[1] l = {4}, float[1,1,3] h = {1,1,1},
             float[1,9,4] v = {0}, float[1,9,3] s = {0}>
            { a = LSTM<hidden_size=3, clip=1.0>(x, w, r) b = LSTM<hidden_size=3, input_forget=1>(x, w, r)
              c = LSTM<hidden_size=3, direction="up">(x, w, r) d = LSTM<hidden_size=3>(x, w, r, , l)
              e = LSTM<hidden_size=3, activations=["Tanh","Tanh","Tanh"]>(x, w, r)
              f = LSTM<hidden_size=3>(x, w, r, , , h) g, k, i = LSTM<hidden_size=3>(x, w, r)
              j = GRU<hidden_size=3>(x, v, s) })",
         {{"GRU: no operation of nolk's does this to [5, 1, 4]", "replace it by an LSTM"},
          {"LSTM: clip", "export the LSTM without clip"},
          {"LSTM: direction 'up' is not known", kInvalid},
          {"LSTM: initial_h is not zero", "start from zero states, without peepholes"},
          {"LSTM: input_forget", "export the LSTM without input_forget"},
          {"LSTM: sequence_lens below the number of steps", "give sequences of one length"},
          {"LSTM: the activation Tanh", "use the usual activations"},
          {"LSTM: the output Y_c is used", "use Y or Y_h"}}},
        {R"((float[N,3,5,5] x) => (float[N,4,3,3] y, float[N,4,3,3] z, float[N,3,4,5] t, float[N,3,2,2] u, float[N,3,6,5] s)
            <float[4,5,3,3] w = {0}, float[4,3,3,3] v = {0}>
            { y = Conv(x, w) z = Conv<auto_pad="FOO">(x, v) t = MaxPool<kernel_shape=[1,1], pads=[-1,0,0,0]>(x)
              u = AveragePool<kernel_shape=[2,2], strides=[2,2], dilations=[2,2]>(x)
              s = AveragePool<kernel_shape=[1,1], pads=[0,0,2,0], ceil_mode=1>(x) })",
         {{"AveragePool: ceil_mode leaves out a window of padding alone", "use pads that are smaller than the kernel"},
          {"AveragePool: dilations", "replace by a Conv with a constant kernel"},
          {"Conv: auto_pad 'FOO' is not known", kInvalid},
          {"Conv: weights of shape [4, 5, 3, 3] for an input of [1, 3, 5, 5]", kShapes},
          {"MaxPool: pads -1 is not possible", "cut the input by a Slice in front instead"}}},
        {"(float[N,1,5,5] x) => (float[N,1,304,5] y) <float[1,1,2,1] w = {0}> { y = Conv<pads=[300,0,0,0]>(x, w) }",
         {{"Conv: convolve: padding top must be 0 to 255 in this file, is 300", "pad by a node Pad in front instead"}}},
        {R"((float[N,2] x, string[N,2] s, int64[N,2] i) => (float[N,2] y, float[N,2] z, int64[N,2] t)
            <float[2] e = {1,2}> { y = Pow(x, e) z = Cast<to=1>(s) t = Add(i, i) })",
         {{"Add: computes with int64 that depends on the network's input", kHost},
          {"Cast: 's' holds values of the type string", kHost},
          {"Pow: different exponents", "use a Pow of its own for each exponent, and join their results"}}},
        {"(float[N,4] x) => (float[N,0] y) <int64[1] b = {2}, int64[1] a = {1}> { y = Slice(x, b, b, a) }",
         {{"Slice: an empty result [1, 0]", "remove the node"}}},
        {R"((float[N,3,4] x) => (float[N,3,4] y, float[N,5] z, int64[N,1,4] t, uint8[N,3,4] u, float[N,1,4] v)
            <int64[2] s = {-1,5}, float f = {1}, int64[1] i = {7}>
            { y = Transpose<perm=[0,1,1]>(x) z = Reshape(x, s) t = ArgMax<axis=1>(x) u = QuantizeLinear(x, f)
              v = Gather<axis=1>(x, i) })",
         {{"ArgMax: no operation of nolk's does this to [1, 3, 4]",
           "end the network before it and leave the rest to the host"},
          {"Gather: index 7 is beyond the extent 3",
           "use indices from -3 to 2, or give the input the shape that the network was made for (--shape)"},
          {"QuantizeLinear: no operation of nolk's does this to [1, 3, 4]", "export the network before quantisation"},
          {"Reshape: shape [-1, 5] does not divide [1, 3, 4]", kShapes},
          {"Transpose: perm names axis 1 twice", kInvalid}}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.graph);
        std::vector<std::pair<std::string, std::string>> findings;
        for (const convert::Finding& finding : refused(row.graph))
            findings.emplace_back(finding.type + ": " + finding.why, finding.advice);
        std::sort(findings.begin(), findings.end());
        EXPECT_EQ(findings, row.findings);
    }
}

// What holds for some batches only is no result for any batch.
TEST(Refusal, NamesNodesThatDependOnTheBatch) {
    const char kIf[] =
        R"((float[N,3] x) => (float[N,3] y) <int64 z = {0}, int64 one = {1}>
           { s = Shape(x) n = Gather(s, z) c = Equal(n, one)
             y = If<then_branch = t () => (float[N,3] r) { r = Relu(x) },
                    else_branch = e () => (float[N,3] r) { r = Neg(x) }>(c) })";
    const char kValues[] =
        R"((float[N,3] x) => (float[N,3] y, float[N,3] t, int64[2] s)
           <int64 z = {0}, int64 two = {2}, float a = {10}, float b = {1}>
           { s = Shape(x) n = Gather(s, z) f = Cast<to=1>(n) m = Mul(x, f) y = Relu(m)
             g = Greater(n, two) k = Where(g, a, b) t = Mul(x, k) })";
    EXPECT_EQ(findingsOf(kIf), std::vector<std::string>{"If: takes another branch for another batch"});
    EXPECT_EQ(findingsOf(kValues), (std::vector<std::string>{"Mul: the values of 'f' change with the batch",
                                                             "Mul: the values of 'k' change with the batch",
                                                             "output: the values of 's' change with the batch"}));
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
        const char* text;
        std::map<std::string, convert::Dims> shapes = {};
    };
    const char kFree[] =
        "(float[N,3,H,W] x, float[N,M] z) => (float[N,3,H,W] y, float[N,M] v) { y = Relu(x) v = Relu(z) }";
    const Row kRows[] = {
        {kFree, "inputs have free extents: fix them by --shape x=1,3,N,N --shape z=1,N, with numbers for N"},
        {kFree, "", {{"x", {1, 3, 4, 5}}, {"z", {1, 2}}}},
        {kFree,
         "--shape: no input is named 'nothing'; the model has 'x', 'z'; no input is named 'w'; the model has 'x', 'z'; "
         "input 'x' has 4 dimensions, not 3: --shape x=N,3,N,N, with numbers for N",
         {{"x", {1, 3, 4}}, {"nothing", {1}}, {"w", {1}}}},
        {"(float[A,C] x) => (float[A,C] y) { y = Relu(x) }",
         "inputs have free extents: fix them by --shape x=1,N, with numbers for N and 1 for the batch, wherever that "
         "is"},
        {R"((float[T,X,3] x) => (float[T,1,1,2] y) <float[1,8,3] w = {0}, float[1,8,2] wr = {0}>
            { y = LSTM<hidden_size=2>(x, w, wr) })",
         "inputs have free extents: fix them by --shape x=N,1,3, with numbers for N"},
        {"(float[T,batch,3] x) => (float[T,batch,3] y) { y = Relu(x) }",
         "inputs have free extents: fix them by --shape x=N,1,3, with numbers for N"},
        {R"((float[T,1,3] x) => (float[T,1,1,2] y) <float[1,8,3] w = {0}, float[1,8,2] wr = {0}>
            { y = LSTM<hidden_size=2>(x, w, wr) })",
         "node 'y' (LSTM) works along the free extent of input 'x', which is no batch: fix it by --shape x=N,1,3, with "
         "numbers for N"},
        {"(float[1,3] x) => (float[1,3] y, float[1,3] u) { a = Add(x, b) y = Add(a, c) }",
         "node that makes 'a' (Add): nothing makes 'b'; node that makes 'y' (Add): nothing makes 'c'; output of the "
         "graph: nothing makes 'u'; the file is damaged, export the network anew"},
        {"(float[1,3] x, float[1,3] x) => (float[1,3] y) { y = Relu(x) y = Abs(x) }",
         "two inputs are named 'x'; node that makes 'y' (Abs): another node or input makes 'y'; the file is damaged, "
         "export the network anew"},
        {"(float[1,3] x) => (float[1,3] y) { a = Add(x, b) b = Relu(a) y = Relu(b) }",
         "node that makes 'a' (Add): is part of a cycle or behind one; the file is damaged, export the network anew"},
        {R"((float[1,3] x) => (float[1,3] y) <bool yes = {1}>
            { y = If<then_branch = t () => (float[1,3] r, float[1,3] s) { r = Relu(x) s = Neg(x) },
                     else_branch = e () => (float[1,3] r) { r = Neg(x) }>(yes) })",
         "node that makes 'y' (If): its branch has another number of results"},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.text);
        convert::ConvertOptions options;
        options.shapes = row.shapes;
        std::string text;
        try {
            refused(row.graph, options);
        } catch (const convert::OnnxError& error) {
            text = error.what();
        }
        EXPECT_EQ(text, row.text);
    }
}

}  // namespace
