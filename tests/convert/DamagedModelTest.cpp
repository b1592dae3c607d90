// Files that somebody has damaged, by chance or on purpose: one error, no crash, no long wait. The sanitizers' builds
// of the tests look on.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "convert/check/check.h"
#include "convert/conversion.h"
#include "onnxText.h"
#include "support/effort.h"

namespace {

const char* const kGraphs[] = {
    "(float[1,3,8,8] x) => (float[N,4] y) <float[4,3,3,3] w = {1}, float[4] b = {1,2,3,4}, int64[2] s = {-1,4}>"
    "{ c = Conv<pads=[1,1,1,1], strides=[2,2]>(x, w, b) r = Relu(c) p = MaxPool<kernel_shape=[2,2], strides=[2,2]>(r)"
    "  g = GlobalAveragePool(p) y = Reshape(g, s) }",
    "(float[1,2,4,6] x) => (float[1,2,8,12] y) <float[4] f = {1,1,2,2}, int64[8] p = {0,0,1,1,0,0,1,1}, "
    "int64[2] parts = {1,1}>"
    "{ a, b = Split<axis=1>(x, parts) m = Mul(a, b) c = Concat<axis=1>(m, a) d = Pad(c, p) "
    "  t = Transpose<perm=[0,1,3,2]>(d) y = Resize<coordinate_transformation_mode=\"asymmetric\", mode=\"nearest\", "
    "  nearest_mode=\"floor\">(t, , f) }",
    "(float[1,4,6] x) => (float[1,4,6] y) <float[6,6] w = {1}, float[6] s = {1,2,3,4,5,6}, float[6] b = {0}>"
    "{ n = LayerNormalization(x, s, b) q = MatMul(n, w) k = Transpose<perm=[0,2,1]>(q) a = MatMul(q, k) "
    "  m = Softmax<axis=-1>(a) o = MatMul(m, n) y = Add(o, x) }",
    "(float[1,2,4] x) => (float[1,2,4] y) <float[1,8,4] w = {1}, float[1,8,2] r = {1}, float[1,16] b = {0}, "
    "int64[1] one = {1}>"
    "{ t = Transpose<perm=[1,0,2]>(x) h, last, cell = LSTM<hidden_size=2>(t, w, r, b) u = Squeeze(h, one) "
    "  v = Transpose<perm=[1,0,2]>(u) m = ReduceMean<axes=[2]>(v) y = Sub(x, m) }",
    "(float[1,2,4,4] x) => (float[1,8,2,2] y) <int64 i = {1}, int64[1] a = {0}, int64 d = {1}, int64 z = {0}>"
    "{ s = Shape(x) n = Gather(s, z) c = Range(z, n, d) f = Cast<to=1>(c) e = SpaceToDepth<blocksize=2>(x) "
    "  k = ConstantOfShape<value=float[1] {3}>(s) g = SpaceToDepth<blocksize=2>(k) h = Add(e, g) y = Mul(h, f) }",
    "(float[1,3,4] x) => (float[1,3,3] y) <float[4,2,2] w = {1}, bool c = {1}>"
    "{ a = Einsum<equation=\"bid,dhk->bihk\">(x, w)"
    "  t = If<then_branch = p () => (float[1,3,3] r) { r = Einsum<equation=\"bihk,bjhk->bij\">(a, a) },"
    "    else_branch = q () => (float[1,3,3] r) { m = ReduceSum<keepdims=0>(a) r = Add(m, m) }>(c)"
    "  y = Relu(t) }",
};

// Whatever happens, it is an error with one line or a file that passes or fails its check.
void expectHarmless(const onnx::ModelProto& proto) {
    try {
        convert::Model model = convert::modelOf(proto, {});
        convert::takeBranches(model, convert::ConvertOptions{});
        const convert::Conversion made = convert::convertModel(model, {});
        EXPECT_EQ(made.file.bytes.empty(), !made.findings.empty());
        if (!made.findings.empty()) return;
        convert::CheckOptions options = convert::checkOptionsFor(model, {}, made);
        options.memoryBytes = 1 << 26;
        options.steps = 10'000'000;
        const convert::CheckResult result = convert::check(model, made.file, options);
        EXPECT_EQ(result.passed, result.failure.empty());
    } catch (const convert::OnnxError& error) {
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << error.what();
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what() << "\n" << proto.ShortDebugString();
    }
}

TEST(DamagedModel, FlippedAndMissingBytesDoNoHarm) {
    std::mt19937 random(1);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    for (const char* graph : kGraphs) {
        const std::string bytes = withWeights(protoOfText(graph)).SerializeAsString();
        for (int round = 0; round < 4 * effort(); ++round) {
            std::string damaged = bytes;
            for (std::size_t i = 0; i <= below(3); ++i) damaged[below(damaged.size())] = static_cast<char>(random());
            if (below(8) == 0) damaged.resize(below(damaged.size()));
            if (below(8) == 0) damaged.insert(below(damaged.size() + 1), damaged, 0, below(32));
            onnx::ModelProto proto;
            if (proto.ParseFromString(damaged)) expectHarmless(proto);
        }
    }
}

// Numbers that a file may hold in any place.
std::int64_t anyNumber(std::mt19937& random) {
    const std::int64_t kNumbers[] = {0,
                                     1,
                                     -1,
                                     2,
                                     3,
                                     5,
                                     -7,
                                     64,
                                     65536,
                                     1 << 20,
                                     std::int64_t{1} << 31,
                                     std::int64_t{1} << 40,
                                     std::numeric_limits<std::int64_t>::max(),
                                     std::numeric_limits<std::int64_t>::min()};
    return kNumbers[random() % std::size(kNumbers)];
}

void damageNode(onnx::NodeProto& node, const onnx::GraphProto& graph, std::mt19937& random) {
    const onnx::NodeProto other = graph.node(static_cast<int>(random() % static_cast<unsigned>(graph.node_size())));
    const auto pick = [&](int size) { return static_cast<int>(random() % static_cast<unsigned>(size)); };
    if (node.input_size() == 0) return;
    switch (random() % 7) {
        case 0:
            node.set_op_type(other.op_type());
            break;
        case 1:
            node.set_input(pick(node.input_size()), other.output(0));
            break;
        case 2:
            node.set_input(pick(node.input_size()), "");
            break;
        case 3:
            node.mutable_input()->RemoveLast();
            break;
        case 4:
            for (const auto& attribute : other.attribute()) *node.add_attribute() = attribute;
            break;
        default:
            if (node.attribute_size() == 0) return;
            auto& attribute = *node.mutable_attribute(pick(node.attribute_size()));
            attribute.set_i(anyNumber(random));
            attribute.set_f(static_cast<float>(anyNumber(random)));
            if (attribute.ints_size() != 0) attribute.set_ints(pick(attribute.ints_size()), anyNumber(random));
            if (random() % 4 == 0) attribute.add_ints(anyNumber(random));
    }
}

void damageTensor(onnx::TensorProto& tensor, std::mt19937& random) {
    if (random() % 3 == 0 && tensor.dims_size() != 0) tensor.set_dims(0, anyNumber(random));
    for (std::int64_t& number : *tensor.mutable_int64_data())
        if (random() % 3 == 0) number = anyNumber(random);
    for (float& number : *tensor.mutable_float_data())
        if (random() % 16 == 0) number = std::numeric_limits<float>::quiet_NaN();
    if (random() % 8 == 0) tensor.set_data_type(static_cast<int>(random() % 18));
}

TEST(DamagedModel, LyingNumbersAndNamesDoNoHarm) {
    std::mt19937 random(2);
    for (const char* graph : kGraphs) {
        const onnx::ModelProto good = withWeights(protoOfText(graph));
        for (int round = 0; round < 6 * effort(); ++round) {
            onnx::ModelProto damaged = good;
            onnx::GraphProto& g = *damaged.mutable_graph();
            for (std::size_t i = 0; i <= random() % 2; ++i) {
                const std::size_t kind = random() % 8;
                if (kind == 0 && g.initializer_size() != 0)
                    damageTensor(*g.mutable_initializer(
                                     static_cast<int>(random() % static_cast<unsigned>(g.initializer_size()))),
                                 random);
                else if (kind == 1)
                    g.mutable_input(0)
                        ->mutable_type()
                        ->mutable_tensor_type()
                        ->mutable_shape()
                        ->mutable_dim(static_cast<int>(random() % 3))
                        ->set_dim_value(anyNumber(random));
                else if (kind == 2)
                    damaged.mutable_opset_import(0)->set_version(7 + static_cast<int>(random() % 15));
                else
                    damageNode(*g.mutable_node(static_cast<int>(random() % static_cast<unsigned>(g.node_size()))), g,
                               random);
            }
            SCOPED_TRACE(round);
            expectHarmless(damaged);
        }
    }
}

}  // namespace
