// Random networks, built with fusion, sharing and planning: against the same networks evaluated one operation after the
// other, and against themselves, saved to a file and loaded again.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

#include "support/Arrays.h"
#include "support/Net.h"
#include "support/ReferenceBuilder.h"
#include "support/effort.h"
#include "support/values.h"
#include "writer/ModelWriter.h"

namespace {

using X = nolk::TensorX*;
using Shape = nolk::TensorShape;
using Builder = nolk::RunnerBuilder;

// Keeps values, and with them rounding, small: what grows beyond is not taken into the network.
constexpr float kLargest = 8.0f;

class RandomGraph {
public:
    explicit RandomGraph(std::uint32_t seed) : values_(seed), arrays_(seed), writer_({pick(1, 4), false, {}}) {
        for (int i = pick(1, 3); i > 0; --i) {
            const Shape shape{batch_, pick(1, 6), pick(1, 8), pick(1, 8), 3};
            const std::vector<float> values = values_.reals(ReferenceBuilder::count(shape));
            nodes_.push_back({{reference_.input(shape, values), net_.input(shape, values), writer_.input(shape)}});
        }
        if (pick(0, 1)) constant();
        for (int i = pick(4, 20); i > 0; --i) addOperation();
    }

    void expectReference() {
        std::vector<const Node*> outputs{&nodes_.back()};
        for (int i = pick(0, 4); i > 0; --i)
            outputs.push_back(&nodes_[static_cast<std::size_t>(pick(0, static_cast<int>(nodes_.size()) - 1))]);
        std::vector<X> built, written;
        for (const Node* node : outputs) {
            built.push_back(node->x[1]);
            written.push_back(node->x[2]);
        }
        writer_.build(written.data(), static_cast<int>(written.size()));
        net_.build(built);
        const auto results = net_.runAgain();
        ASSERT_EQ(results.size(), outputs.size());
        // Twenty operations deep, with sums of up to a hundred products in an order of their own.
        for (std::size_t i = 0; i < results.size(); ++i)
            expectClose(results[i], reference_.values(outputs[i]->x[0]), 2e-4f);
        for (const bool loaded : {false, true}) {
            SCOPED_TRACE(testing::Message() << "loaded " << loaded << ", version " << int{writer_.bytes()[2]});
            if (loaded) net_.load(writer_.bytes(), batch_);
            const auto again = net_.runAgain();
            ASSERT_EQ(again.size(), results.size());
            for (std::size_t i = 0; i < results.size(); ++i) expectSameBits(again[i], results[i]);
        }
    }

private:
    // A tensor of the reference, of the network, of the file.
    struct Node {
        X x[3];
        bool fromPad = false;
    };

    int pick(int low, int high) { return values_.integer(low, high); }
    Shape shapeOf(const Node& node) { return reference_.shapeOf(node.x[0]); }

    // record(builder, k) makes an operation with the tensors x[k] of nodes.
    template <typename Record>
    void add(Record record, bool isPad = false) {
        X const y = record(reference_, 0);
        const std::vector<float>& values = reference_.values(y);
        if (values.size() > 2000 ||
            !std::all_of(values.begin(), values.end(), [](float v) { return std::fabs(v) <= kLargest; }))
            return;
        nodes_.push_back({{y, record(*net_.operator->(), 1), record(writer_, 2)}, isPad});
    }

    // All samples are the same, or no file could hold them.
    void constant() {
        const Shape shape = shapeOf(nodes_[0]);
        const int count = shape.c * shape.h * shape.w;
        const float* const sample = arrays_.reals(count);
        std::vector<float> samples;
        for (int i = 0; i < batch_; ++i) samples.insert(samples.end(), sample, sample + count);
        nolk::Tensor tensor{shape, samples.data()};
        add([&](Builder& b, int) { return b.constTensor(&tensor); });
    }

    // The last ones more often: that makes chains.
    Node& someNode() {
        const int last = static_cast<int>(nodes_.size()) - 1;
        return nodes_[static_cast<std::size_t>(pick(0, 2) ? std::max(0, last - pick(0, 1)) : pick(0, last))];
    }

    void addOperation() {
        using Add = void (RandomGraph::*)(const Node&);
        static const Add operations[] = {
            &RandomGraph::activate,  &RandomGraph::activate, &RandomGraph::combine, &RandomGraph::convolve,
            &RandomGraph::convolve,  &RandomGraph::pad,      &RandomGraph::pool,    &RandomGraph::normalize,
            &RandomGraph::normalize, &RandomGraph::concat,   &RandomGraph::slice,   &RandomGraph::transpose,
            &RandomGraph::reshape,   &RandomGraph::reduce,   &RandomGraph::resize,  &RandomGraph::multiplyMatrices};
        (this->*operations[pick(0, 15)])(someNode());
    }

    void activate(const Node& node) {
        X (Builder::*const operations[])(X) = {&Builder::relu, &Builder::sigmoid, &Builder::tanh, &Builder::abs};
        const auto operation = operations[pick(0, 3)];
        add([&](Builder& b, int k) { return (b.*operation)(node.x[k]); });
    }

    void combine(const Node& node) {
        const Node* other = &node;
        const Shape a = shapeOf(node);
        for (const Node& candidate : nodes_) {
            const Shape b = shapeOf(candidate);
            if (a.c == b.c && a.h == b.h && a.w == b.w && pick(0, 1)) other = &candidate;
        }
        X (Builder::*const operations[])(X, X) = {&Builder::add, &Builder::sub, &Builder::multiply, &Builder::max};
        const auto operation = operations[pick(0, 3)];
        add([&](Builder& b, int k) { return (b.*operation)(node.x[k], other->x[k]); });
    }

    void convolve(const Node& node) {
        const Shape in = shapeOf(node);
        const int kernel = pick(0, 1) ? 3 : 1, border = pick(0, 1), stride = pick(1, 2);
        if (in.h + 2 * border < kernel || in.w + 2 * border < kernel) return;
        const bool depthwise = in.c > 1 && pick(0, 2) == 0;
        const int groups = depthwise ? in.c : 1, out = depthwise ? 1 : pick(1, 6), inputs = depthwise ? 1 : in.c;
        const nolk::Weights w = arrays_.weights(groups, out, inputs, kernel, kernel, pick(0, 1) == 1);
        for (int i = 0; i < groups * out * inputs * kernel * kernel; ++i) w.weight[i] *= 0.4f;
        const nolk::Padding p{border, border, border, border};
        add([&](Builder& b, int k) { return b.convolve(node.x[k], p, {stride, stride}, {1, 1}, w); });
    }

    void normalize(const Node& node) {
        const int c = shapeOf(node).c, kind = pick(0, 3);
        const nolk::Vector scale = arrays_.vector(c), bias = arrays_.vector(c), mean = arrays_.vector(c);
        const nolk::Vector variance = arrays_.positive(c);
        const auto axis = static_cast<nolk::Axis>(pick(1, 3));
        add([&](Builder& b, int k) {
            X const x = node.x[k];
            return kind < 2    ? b.batchNormalize(x, scale, bias, mean, variance, 1e-3f)
                   : kind == 2 ? b.instanceNormalization(x, scale, bias, 0.5f)
                               : b.softmax(x, axis);
        });
    }

    void pad(const Node& node) {
        const nolk::Padding p{pick(0, 1), pick(0, 1), pick(0, 1), pick(0, 1)};
        add([&](Builder& b, int k) { return b.pad(node.x[k], p); }, true);
    }

    void pool(const Node& node) {
        const Shape in = shapeOf(node);
        if (in.h < 3 || in.w < 3) return;
        // A maximum behind a padding leaves its zeros out, which is seen wherever a window holds negative values only.
        const bool average = node.fromPad || pick(0, 1);
        const nolk::DimsHW kernel{3, pick(2, 3)}, stride{pick(1, 2), pick(1, 2)};
        const nolk::Padding p{pick(0, 1), pick(0, 1), pick(0, 1), pick(0, 1)};
        add([&](Builder& b, int k) {
            return average ? b.avgPool(node.x[k], kernel, p, stride) : b.maxPool(node.x[k], kernel, p, stride);
        });
    }

    void concat(const Node& node) {
        const auto axis = static_cast<nolk::Axis>(pick(1, 3));
        add([&](Builder& b, int k) {
            X parts[] = {node.x[k], node.x[k]};
            return b.concat(parts, 2, axis);
        });
    }

    void slice(const Node& node) {
        const Shape in = shapeOf(node);
        const int axis = pick(1, 3), extent = axis == 1 ? in.c : axis == 2 ? in.h : in.w;
        const nolk::SlicePos pos{axis, pick(0, extent - 1), extent, pick(1, 2)};
        if (extent - pos.start >= pos.step) add([&](Builder& b, int k) { return b.slice(node.x[k], pos); });
    }

    void transpose(const Node& node) {
        static const nolk::Perm perms[] = {{{0, 2, 3, 1}}, {{0, 3, 1, 2}}, {{0, 1, 3, 2}}, {{0, 2, 1, 3}}};
        const nolk::Perm& perm = perms[pick(0, 3)];
        add([&](Builder& b, int k) { return b.transpose(node.x[k], perm); });
    }

    // To channel-last anywhere; without moving anything where the memory is handed on, which nobody else may read then.
    void reshape(const Node& node) {
        const Shape in = shapeOf(node);
        const bool moves = pick(0, 1) == 1;
        add([&](Builder& b, int k) {
            if (moves) return b.reshape(node.x[k], {in.n, in.h, in.w, in.c, 3}, nolk::TensorLayout::nhwc);
            return b.reshape(b.relu(node.x[k]), {in.n, in.c * in.h * in.w, 1, 1, 3}, nolk::TensorLayout::nchw);
        });
    }

    void reduce(const Node& node) {
        const Shape in = shapeOf(node);
        const Shape out{in.n, pick(0, 1) ? 1 : in.c, pick(0, 1) ? 1 : in.h, pick(0, 1) ? 1 : in.w, 3};
        const auto op = static_cast<nolk::BasicOp>(pick(0, 3));
        add([&](Builder& b, int k) { return b.reduce(node.x[k], out, op); });
    }

    void resize(const Node& node) {
        const Shape out{batch_, shapeOf(node).c, pick(2, 8), pick(2, 8), 3};
        const auto mode = static_cast<nolk::ResizeMode>(pick(1, 2));
        const auto transMode = static_cast<nolk::ResizeTransMode>(pick(0, 1));
        add([&](Builder& b, int k) { return b.resize(node.x[k], out, mode, transMode); });
    }

    void multiplyMatrices(const Node& node) {
        add([&](Builder& b, int k) { return b.matMul(node.x[k], b.transpose(node.x[k], {{0, 1, 3, 2}})); });
    }

    Values values_;
    Arrays arrays_;
    int batch_ = pick(1, 2);
    ReferenceBuilder reference_;
    Net net_;
    ModelWriter writer_;
    std::deque<Node> nodes_;
};

TEST(RandomGraph, EqualsPlainEvaluationAlsoFromAFile) {
    for (int seed = 1; seed <= 6 * effort(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        RandomGraph graph(static_cast<std::uint32_t>(seed));
        ASSERT_NO_FATAL_FAILURE(graph.expectReference());
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace
