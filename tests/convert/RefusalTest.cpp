// What the converter says of networks that it cannot convert: all of it at once, and nothing is made.
#include <gtest/gtest.h>

#include "convert/conversion.h"
#include "onnxText.h"

namespace {

struct Refusal {
    const char* graph;
    const char* text;  // "type: why"
};

// What stands in the way, one after the other: "type: why".
std::vector<std::string> findingsOf(const char* graph, const convert::ConvertOptions& options = {}) {
    const convert::Conversion made =
        convert::convertModel(convert::modelOf(withWeights(protoOfText(graph)), {}), options);
    EXPECT_EQ(made.file.bytes.empty(), !made.findings.empty());
    std::vector<std::string> texts;
    for (const convert::Finding& finding : made.findings) texts.push_back(finding.type + ": " + finding.why);
    return texts;
}

TEST(Refusal, NamesEveryNodeThatStandsInTheWay) {
    const convert::Conversion made =
        convert::convertModel(modelOfText("(float[1,3,4,4] x) => (float[1,3,4,4] y)"
                                          "{ a = Sin(x) b = Relu(a) c = Round(b) d = Conv(c, c) e = Det(x) "
                                          "f = Cast<to=7>(x) g = Cast<to=1>(f) y = Sum(d, e, g) }"),
                              {});
    std::vector<std::string> nodes;
    for (const convert::Finding& finding : made.findings) {
        nodes.push_back(finding.node + " " + finding.type);
        EXPECT_FALSE(finding.why.empty()) << finding.node;
    }
    EXPECT_EQ(nodes, (std::vector<std::string>{"a Sin", "c Round", "d Conv", "e Det", "f Cast"}));
    EXPECT_TRUE(made.file.bytes.empty());
}

TEST(Refusal, SaysWhy) {
    const Refusal kRefusals[] = {
        {"(float[1,3] x) => (float[1,3] y) { y = Tan(x) }", "Tan: no operation of nolk's does this"},
        {"(float[1,3] x, float[1] e) => (float[1,3] y) { y = Pow(x, e) }",
         "Pow: the exponent must be constant, depends on the network's input"},
        {"(float[1,3] x) => (float[1,3] y) <float e = {0.3}> { y = Pow(x, e) }", "Pow: the exponent 0.300000"},
        {"(float[1,3] x) => (int64[1,3] y) { y = Cast<to=7>(x) }", "Cast: to int64"},
        {"(float[1,3,3] x) => (float[1,3] y) { y = Einsum<equation=\"bii->bi\">(x) }", "Einsum: takes a diagonal"},
        {"(float[1,3] x) => (float[1,3] y) <int64[2] s = {9000,9000}>"
         "{ a = ConstantOfShape(s) b = ReduceMax<keepdims=0>(a) y = Add(x, b) }",
         "ConstantOfShape: makes [9000, 9000] of constants, which is too large to be computed in advance"},
        {"(float[1,3] x) => (float[1,3] y) { a, b = Relu(x) y = Add(a, b) }",
         "Relu: output 1 is used, which is not converted"},
        {"(float[1,2,4,4] x) => (float[1,2,2,2] y) { a, b = MaxPool<kernel_shape=[2,2], strides=[2,2]>(x) "
         "c = Cast<to=1>(b) y = Add(a, c) }",
         "MaxPool: the output Indices is used"},
        {"(float[1,2,4,4] x) => (float[1,2,8,8] y) <float[4] s = {1,1,2,2}, float[8] r = {0,0,0,0,1,1,1,1}>"
         "{ y = Resize<mode=\"linear\", coordinate_transformation_mode=\"tf_crop_and_resize\">(x, r, s) }",
         "Resize: coordinate_transformation_mode tf_crop_and_resize"},
        {"(float[N,5,4] z) => (float[5,1,N,3] y) <float[1,12,4] w = {0}, float[1,12,3] r = {0}>"
         "{ x = Transpose<perm=[1,0,2]>(z) y = LSTM<hidden_size=3, clip=1.0>(x, w, r) }",
         "LSTM: clip"},
    };
    for (const Refusal& refusal : kRefusals) {
        SCOPED_TRACE(refusal.graph);
        EXPECT_EQ(findingsOf(refusal.graph), std::vector<std::string>{refusal.text});
    }
}

TEST(Refusal, AsksForShapesThatAreFree) {
    const char kGraph[] = "(float[N,3,H,W] x) => (float[N,3,H,W] y) { y = Relu(x) }";
    EXPECT_THROW(convert::convertModel(modelOfText(kGraph), {}), convert::OnnxError);
    convert::ConvertOptions options;
    options.shapes["x"] = {1, 3, 4, 5};
    EXPECT_EQ(findingsOf(kGraph, options), std::vector<std::string>());
    options.shapes["x"] = {1, 3, 4};
    EXPECT_THROW(convert::convertModel(modelOfText(kGraph), options), convert::OnnxError);
    options.shapes = {{"nothing", {1, 3, 4, 5}}};
    EXPECT_THROW(convert::convertModel(modelOfText(kGraph), options), convert::OnnxError);
}

}  // namespace
