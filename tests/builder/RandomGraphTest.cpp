// Random networks, built with fusion, sharing and planning: against the same networks evaluated one operation after the
// other, and against themselves, saved to a file and loaded again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <set>

#include "support/effort.h"
#include "support/everyOperation.h"
#include "support/expectReference.h"

namespace {

// Keeps values, and with them rounding, small: what grows beyond is not taken into the network.
constexpr float kLargest = 8.0f;

class RandomGraph {
public:
    explicit RandomGraph(std::uint32_t seed) : values_(seed), writer_({pick(1, 4), false, {}}) {
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

    // With x[0] and x[1] of the two nodes.
    void add(const Record& record, const Node& node, const Node& other, bool isPad = false) {
        const auto seed = static_cast<std::uint32_t>(pick(1, 1000));
        const auto make = [&](Builder& b, int k) {
            return record(recordings_.emplace_back(b, Xs{node.x[k], other.x[k]}, seed));
        };
        X const y = make(reference_, 0);
        const std::vector<float>& values = reference_.values(y);
        const auto isTame = [](float v) { return std::fabs(v) <= kLargest; };
        if (values.empty() || values.size() > 2000 || !std::all_of(values.begin(), values.end(), isTame)) return;
        nodes_.push_back({{y, make(*net_.operator->(), 1), make(writer_, 2)}, isPad});
    }

    // All samples are the same, or no file could hold them.
    void constant() {
        const Shape shape = shapeOf(nodes_[0]);
        const int count = shape.c * shape.h * shape.w;
        const std::vector<float> sample = values_.reals(static_cast<std::size_t>(count));
        std::vector<float> samples;
        for (int i = 0; i < batch_; ++i) samples.insert(samples.end(), sample.begin(), sample.end());
        nolk::Tensor tensor{shape, samples.data()};
        add([&](Recording& r) { return r->constTensor(&tensor); }, nodes_[0], nodes_[0]);
    }

    const Node& sameShape(const Node& node) {
        const Node* found = &node;
        for (const Node& candidate : nodes_)
            if (fields(shapeOf(candidate)) == fields(shapeOf(node)) && pick(0, 1)) found = &candidate;
        return *found;
    }

    // The last ones more often: that makes chains.
    const Node& someNode() {
        const int last = static_cast<int>(nodes_.size()) - 1;
        return nodes_[static_cast<std::size_t>(pick(0, 2) ? std::max(0, last - pick(0, 1)) : pick(0, last))];
    }

    void addOperation() {
        const Node &node = someNode(), &other = sameShape(node);
        const int kind = pick(0, 9);
        if (kind < 3) return convolve(node);
        if (kind == 3) return pad(node);
        if (kind == 4) return reshape(node);
        addNamed(kind == 5 ? "batchNormalize" : "", node, other);
    }

    // An operation of the list; one of all where the name is empty. What magnifies small differences is left out, and a
    // maximum behind a padding, which leaves its zeros out.
    void addNamed(const std::string& name, const Node& node, const Node& other) {
        static const std::set<std::string> excluded{"divide", "l2normalize", "instanceNormalization",
                                                    "instanceNormalization, scaled", "concat 0"};
        const std::vector<OperationCase> operations = everyOperation(shapeOf(node));
        const OperationCase* o =
            &operations[static_cast<std::size_t>(pick(0, static_cast<int>(operations.size()) - 1))];
        for (const OperationCase& candidate : operations)
            if (candidate.name == name) o = &candidate;
        const bool fits = shapeOf(node).dims == 3 || !o->mayBeRefused;
        if (fits && excluded.count(o->name) == 0 && !(node.fromPad && o->name == "maxPool"))
            add(o->record, node, other);
    }

    void convolve(const Node& node) {
        const Shape in = shapeOf(node);
        const int kernel = pick(0, 1) ? 3 : 1, border = pick(0, 1), stride = pick(1, 2), outputs = pick(1, 6);
        if (in.h + 2 * border < kernel || in.w + 2 * border < kernel) return;
        const bool depthwise = in.c > 1 && pick(0, 2) == 0, bias = pick(0, 1) == 1;
        const auto record = [=](Recording& r) {
            const nolk::Weights w = depthwise ? r.weights(in.c, 1, 1, kernel, kernel, bias)
                                              : r.weights(1, outputs, in.c, kernel, kernel, bias);
            for (int i = 0; i < w.groups * w.outChannels * w.inChannels * kernel * kernel; ++i) w.weight[i] *= 0.4f;
            return r->convolve(r.x[0], {border, border, border, border}, {stride, stride}, {1, 1}, w);
        };
        add(record, node, node);
    }

    void pad(const Node& node) {
        const nolk::Padding p{pick(0, 1), pick(0, 1), pick(0, 1), pick(0, 1)};
        add([p](Recording& r) { return r->pad(r.x[0], p); }, node, node, true);
    }

    // Nothing is moved, since the relu's memory is handed on, which nobody else reads.
    void reshape(const Node& node) {
        const Shape in = shapeOf(node), out{in.n, in.c * in.h * in.w, 1, 1, 3};
        add([out](Recording& r) { return r->reshape(r->relu(r.x[0]), out, nolk::TensorLayout::nchw); }, node, node);
    }

    Values values_;
    std::deque<Recording> recordings_;
    int batch_ = pick(1, 2);
    ReferenceBuilder reference_;
    Net net_;
    ModelWriterImpl writer_;
    std::deque<Node> nodes_;
};

TEST(RandomGraph, EqualsPlainEvaluationAlsoFromAFile) {
    const int seeds = 6 * effort();
    for (int seed = 1; seed <= seeds; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        RandomGraph graph(static_cast<std::uint32_t>(seed));
        ASSERT_NO_FATAL_FAILURE(graph.expectReference());
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace
