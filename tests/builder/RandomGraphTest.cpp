// Random networks, built with fusion, sharing and planning, against the same networks evaluated one operation after the
// other.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

#include "support/Net.h"
#include "support/OwnedWeights.h"
#include "support/effort.h"
#include "support/plain.h"
#include "support/reference.h"

namespace {

using nolk::TensorX;
using plain::Plain;

// Keeps values, and with them rounding, small: what grows beyond is not taken into the network.
constexpr float kLargest = 8.0f;

class RandomGraph {
public:
    explicit RandomGraph(std::uint32_t seed) : values_(seed) {
        for (int i = pick(1, 3); i > 0; --i) {
            const Plain x = random(randomShape());
            add(net_.input(x.shape, x.values), x);
        }
        if (pick(0, 1)) {
            const Plain x = random(nodes_[0].value.shape);
            add(net_.constant(x.shape, x.values), x);
        }
        for (int i = pick(4, 20); i > 0; --i) addOperation();
    }

    void expectPlainResults() {
        std::vector<TensorX*> outputs{nodes_.back().x};
        std::vector<const Plain*> expected{&nodes_.back().value};
        for (int i = pick(0, 4); i > 0; --i) {
            const Node& node = nodes_[static_cast<std::size_t>(pick(0, static_cast<int>(nodes_.size()) - 1))];
            outputs.push_back(node.x);
            expected.push_back(&node.value);
        }
        net_.build(outputs);
        for (int run = 0; run < 2; ++run) {
            const auto results = net_.runAgain();
            ASSERT_EQ(results.size(), expected.size());
            // Twenty operations deep, with sums of up to a hundred products in an order of their own.
            for (std::size_t i = 0; i < results.size(); ++i) expectClose(results[i], expected[i]->values, 2e-4f);
        }
    }

private:
    struct Node {
        TensorX* x;
        Plain value;
        bool fromPad = false;
    };

    int pick(int low, int high) { return values_.integer(low, high); }
    nolk::TensorShape randomShape() { return {batch_, pick(1, 6), pick(1, 8), pick(1, 8), 3}; }
    Plain random(nolk::TensorShape shape) { return {shape, values_.reals(reference::count(shape))}; }
    nolk::RunnerBuilder* builder() const { return net_.operator->(); }

    Node& add(TensorX* x, Plain value) {
        nodes_.push_back({x, std::move(value)});
        return nodes_.back();
    }

    // The last ones more often: that makes chains.
    Node& someNode() {
        const int last = static_cast<int>(nodes_.size()) - 1;
        return nodes_[static_cast<std::size_t>(pick(0, 2) ? std::max(0, last - pick(0, 1)) : pick(0, last))];
    }

    static bool isTame(const Plain& p) {
        return std::all_of(p.values.begin(), p.values.end(), [](float v) { return std::fabs(v) <= kLargest; });
    }

    void addOperation() {
        Node& node = someNode();
        switch (pick(0, 15)) {
            case 0:
            case 1:
                return activate(node);
            case 2:
                return combine(node);
            case 3:
            case 4:
                return convolve(node);
            case 5:
                return normalize(node);
            case 6:
                return pad(node);
            case 7:
                return pool(node);
            case 8:
                return concat(node);
            case 9:
                return slice(node);
            case 10:
                return transpose(node);
            case 11:
                return reshape(node);
            case 12:
                return reduce(node);
            case 13:
                return resize(node);
            case 14:
                return softmaxOrInstance(node);
            default:
                return multiplyMatrices(node);
        }
    }

    void activate(Node& node) {
        static const ActivateType types[] = {ACT_RELU, ACT_SIGMOID, ACT_TANH, ACT_ABS};
        const ActivateType type = types[pick(0, 3)];
        const Plain y = plain::activate(node.value, type, 0, 0);
        TensorX* x = node.x;
        add(type == ACT_RELU      ? builder()->relu(x)
            : type == ACT_SIGMOID ? builder()->sigmoid(x)
            : type == ACT_TANH    ? builder()->tanh(x)
                                  : builder()->abs(x),
            y);
    }

    void combine(Node& node) {
        static const EltwiseType types[] = {ELTWISE_ADD, ELTWISE_SUB, ELTWISE_MUL, ELTWISE_MAX};
        const EltwiseType type = types[pick(0, 3)];
        const Node* other = &node;
        const nolk::TensorShape& a = node.value.shape;
        for (const Node& candidate : nodes_)
            if (sameExtents(candidate.value.shape, a) && pick(0, 1)) other = &candidate;
        const Plain y = plain::eltwise(node.value, other->value, type);
        if (!isTame(y)) return;
        add(type == ELTWISE_ADD   ? builder()->add(node.x, other->x)
            : type == ELTWISE_SUB ? builder()->sub(node.x, other->x)
            : type == ELTWISE_MUL ? builder()->multiply(node.x, other->x)
                                  : builder()->max(node.x, other->x),
            y);
    }

    static bool sameExtents(const nolk::TensorShape& a, const nolk::TensorShape& b) {
        return a.n == b.n && a.c == b.c && a.h == b.h && a.w == b.w;
    }

    void convolve(Node& node) {
        const nolk::TensorShape& in = node.value.shape;
        const int kernel = pick(0, 1) ? 3 : 1, border = pick(0, 1), stride = pick(1, 2);
        if (in.h + 2 * border < kernel || in.w + 2 * border < kernel) return;
        const bool depthwise = in.c > 1 && pick(0, 2) == 0;
        weights_.emplace_back(depthwise ? in.c : 1, depthwise ? 1 : pick(1, 6), depthwise ? 1 : in.c, kernel, kernel,
                              pick(0, 1) == 1, values_);
        for (float& w : weights_.back().weight()) w *= 0.4f;
        const nolk::Weights w = weights_.back().get();
        const nolk::Padding p{border, border, border, border};
        const Plain y = plain::convolve(node.value, p, {stride, stride}, {1, 1}, w);
        if (isTame(y)) add(builder()->convolve(node.x, p, {stride, stride}, {1, 1}, w), y);
    }

    void normalize(Node& node) {
        const int channels = node.value.shape.c;
        std::vector<float> v[4];
        nolk::Vector vectors[4];
        for (int i = 0; i < 4; ++i) {
            v[i] = values_.reals(static_cast<std::size_t>(channels));
            for (float& f : v[i]) f = i == 3 ? 0.6f + std::fabs(f) : f;
            vectors[i] = {channels, v[i].data()};
        }
        const Plain y = plain::batchNormalize(node.value, v[0], v[1], v[2], v[3], 1e-3f);
        if (!isTame(y)) return;
        add(builder()->batchNormalize(node.x, vectors[0], vectors[1], vectors[2], vectors[3], 1e-3f), y);
    }

    void pad(Node& node) {
        const nolk::Padding p{pick(0, 1), pick(0, 1), pick(0, 1), pick(0, 1)};
        add(builder()->pad(node.x, p), plain::pad(node.value, p)).fromPad = true;
    }

    void pool(Node& node) {
        const nolk::TensorShape& in = node.value.shape;
        if (in.h < 3 || in.w < 3) return;
        // A maximum behind a padding leaves its zeros out, which is seen wherever a window holds negative values only.
        const PoolingType type = node.fromPad ? POOL_AVG : pick(0, 1) ? POOL_AVG : POOL_MAX;
        const nolk::DimsHW kernel{3, pick(2, 3)}, stride{pick(1, 2), pick(1, 2)};
        const nolk::Padding p{pick(0, 1), pick(0, 1), pick(0, 1), pick(0, 1)};
        const Plain y = plain::pool(node.value, type, kernel, p, stride);
        add(type == POOL_AVG ? builder()->avgPool(node.x, kernel, p, stride)
                             : builder()->maxPool(node.x, kernel, p, stride),
            y);
    }

    void concat(Node& node) {
        const int axis = pick(1, 3);
        TensorX* parts[] = {node.x, node.x};
        const nolk::TensorShape& in = node.value.shape;
        if (in.dims == 1) return;
        nolk::TensorShape out = in;
        (axis == 1 ? out.c : axis == 2 ? out.h : out.w) *= 2;
        if (reference::count(out) > 2000) return;
        add(builder()->concat(parts, 2, static_cast<nolk::Axis>(axis)),
            {out, reference::concat({in, in}, {node.value.values, node.value.values}, axis, out)});
    }

    void slice(Node& node) {
        const int axis = pick(1, 3);
        const nolk::TensorShape& in = node.value.shape;
        const int extent = axis == 1 ? in.c : axis == 2 ? in.h : in.w;
        const nolk::SlicePos pos{axis, pick(0, extent - 1), extent, pick(1, 2)};
        if (in.dims == 1 || extent - pos.start < pos.step) return;
        TensorX* x = builder()->slice(node.x, pos);
        const nolk::TensorShape out = builder()->shapeOf(x);
        std::vector<float> y = reference::slice(in, node.value.values, pos, out);
        y.resize(reference::count(out));
        add(x, {out, y});
    }

    void transpose(Node& node) {
        static const nolk::Perm perms[] = {{{0, 2, 3, 1}}, {{0, 3, 1, 2}}, {{0, 1, 3, 2}}, {{0, 2, 1, 3}}};
        const nolk::Perm& perm = perms[pick(0, 3)];
        TensorX* x = builder()->transpose(node.x, perm);
        add(x, {builder()->shapeOf(x), reference::transpose(node.value.shape, node.value.values, perm)});
    }

    // To channel-last anywhere; without moving anything where the memory is handed on, which nobody else may read then.
    void reshape(Node& node) {
        const nolk::TensorShape in = node.value.shape;
        if (pick(0, 1)) {
            const nolk::TensorShape out{in.n, in.h, in.w, in.c, 3};
            add(builder()->reshape(node.x, out, nolk::TensorLayout::nhwc),
                {out, reference::transpose(in, node.value.values, {{0, 2, 3, 1}})});
            return;
        }
        const nolk::TensorShape flat{in.n, in.c * in.h * in.w, 1, 1, 3};
        if (&node != &nodes_.back() || nodes_.size() < 5) return;
        const std::vector<float> same = node.value.values;
        TensorX* moved = builder()->reshape(builder()->relu(node.x), flat, nolk::TensorLayout::nchw);
        add(moved, plain::activate({flat, same}, ACT_RELU, 0, 0));
    }

    void reduce(Node& node) {
        const nolk::TensorShape& in = node.value.shape;
        const nolk::TensorShape out{in.n, pick(0, 1) ? 1 : in.c, pick(0, 1) ? 1 : in.h, pick(0, 1) ? 1 : in.w, 3};
        const auto op = static_cast<nolk::BasicOp>(pick(0, 3));
        const Plain y{out, reference::reduce(in, node.value.values, out, op)};
        if (isTame(y)) add(builder()->reduce(node.x, out, op), y);
    }

    void resize(Node& node) {
        const nolk::TensorShape& in = node.value.shape;
        const nolk::TensorShape out{in.n, in.c, pick(2, 8), pick(2, 8), 3};
        const bool halfPixel = pick(0, 1) == 1, linear = pick(0, 1) == 1;
        add(builder()->resize(node.x, out, linear ? nolk::ResizeMode::linear : nolk::ResizeMode::nearest,
                              halfPixel ? nolk::ResizeTransMode::halfPixel : nolk::ResizeTransMode::alignCorners),
            {out, linear ? reference::resizeLinear(in, node.value.values, out, halfPixel)
                         : reference::resizeNearest(in, node.value.values, out)});
    }

    void softmaxOrInstance(Node& node) {
        const nolk::TensorShape& in = node.value.shape;
        if (pick(0, 1)) {
            const int axis = pick(1, 3);
            add(builder()->softmax(node.x, static_cast<nolk::Axis>(axis)),
                {in, reference::softmax(in, node.value.values, axis)});
            return;
        }
        const std::vector<float> ones(static_cast<std::size_t>(in.c), 1.0f), zeros(ones.size(), 0.0f);
        add(builder()->instanceNormalization(node.x, 0.5f),
            {in, reference::instanceNormalize(in, node.value.values, ones, zeros, 0.5f)});
    }

    void multiplyMatrices(Node& node) {
        const nolk::TensorShape& in = node.value.shape;
        const nolk::Perm swapped{{0, 1, 3, 2}};
        const Plain turned{{in.n, in.c, in.w, in.h, 3}, reference::transpose(in, node.value.values, swapped)};
        const Plain y{{in.n, in.c, in.h, in.h, 3},
                      reference::matMul(in, node.value.values, turned.shape, turned.values)};
        if (isTame(y)) add(builder()->matMul(node.x, builder()->transpose(node.x, swapped)), y);
    }

    Values values_;
    int batch_ = pick(1, 2);
    Net net_;
    std::deque<Node> nodes_;
    std::deque<OwnedWeights> weights_;
};

TEST(RandomGraph, EqualsPlainEvaluation) {
    for (int seed = 1; seed <= 6 * effort(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        RandomGraph graph(static_cast<std::uint32_t>(seed));
        ASSERT_NO_FATAL_FAILURE(graph.expectPlainResults());
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace
