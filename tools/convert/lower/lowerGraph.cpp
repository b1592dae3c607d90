#include "convert/lower/lowerGraph.h"

#include <algorithm>
#include <set>

#include "convert/lower/NodeLowering.h"
#include "convert/lower/operators.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

// The shape of an input or output: a matrix for two dimensions and fewer; otherwise the last three dimensions behind
// the batch are c, h and w, further ones join w.
nolk::TensorShape hostShape(const Dims& dims) {
    Dims sample = dims;
    // The first axis is the batch's where it has one element.
    if (!sample.empty() && sample.size() > 1 && sample.front() == 1) sample.erase(sample.begin());
    if (sample.size() <= 1) return {1, sample.empty() ? 1 : asInt(sample[0]), 1, 1, 1};
    std::int64_t last = 1;
    for (std::size_t i = 2; i < sample.size(); ++i) last *= sample[i];
    if (sample.size() == 2) return {1, 1, asInt(sample[0]), asInt(sample[1]), 3};
    return {1, asInt(sample[0]), asInt(sample[1]), asInt(last), 3};
}

constexpr const char* kHostsPart = "only floats are computed: leave this to the host";

class GraphLowering {
public:
    explicit GraphLowering(const Graph& graph)
        : graph_(graph),
          values_(graph.tensors.size()),
          isValue_(graph.tensors.size(), 0),
          lowered_{Program(graph.budget), {}, {}, {}, {}, 0} {}

    Lowered lower(const std::vector<int>& wanted) {
        for (const int input : graph_.inputs) addInput(input);
        for (const Node& node : graph_.nodes) lowerNode(node);
        for (const int tensor : wanted) addOutput(tensor);
        const std::vector<char> used = lowered_.program.usedSteps(lowered_.outputs);
        for (const int input : graph_.inputs)
            if (used[static_cast<std::size_t>(values_[static_cast<std::size_t>(input)]->step)] == 0)
                lowered_.unusedInputs.push_back(input);
        return std::move(lowered_);
    }

private:
    void addInput(int tensor) {
        const Dims& dims = graph_.dimsOf(tensor);
        values_[static_cast<std::size_t>(tensor)] = placed(lowered_.program.input(hostShape(dims)), dims);
        isValue_[static_cast<std::size_t>(tensor)] = 1;
    }

    void addOutput(int tensor) {
        std::optional<Placed>& value = values_[static_cast<std::size_t>(tensor)];
        const Array* known = graph_.known(tensor);
        if (!value && known == nullptr) {
            if (lowered_.findings.empty()) throw std::logic_error("nothing makes an output");
            return;  // behind a node that is named already
        }
        try {
            lowered_.program.setOrigin({graph_.tensors[static_cast<std::size_t>(tensor)].name, "output"});
            if (lowered_.findings.empty()) checkIsNumbers(tensor);
            if (!value) value = constantStep(lowered_.program, *known);
            const Placed ordered = inOrder(lowered_.program, *value);
            addStep(lowered_.program.view(ordered.step, hostShape(ordered.dims())));
        } catch (const Refusal& refusal) {
            lowered_.findings.push_back({graph_.nameOf(tensor), "output", refusal.what(), refusal.advice});
        } catch (const std::out_of_range& error) {
            lowered_.findings.push_back({graph_.nameOf(tensor), "output", error.what(), "make the output smaller"});
        }
    }

    // Each output has a step of its own: of one that is listed twice, a file's checks would take the second for a
    // mistake.
    void addStep(int step) {
        const bool isOutput = std::count(lowered_.outputs.begin(), lowered_.outputs.end(), step) != 0;
        Program& program = lowered_.program;
        const nolk::TensorShape shape = program.shapeOf(step);  // by value: a further step moves the others
        lowered_.outputs.push_back(isOutput ? program.view(program.copy(step), shape) : step);
    }

    // Whether a result depends on values of the network's inputs, and not just on their shapes.
    bool dependsOnValues(const Node& node) {
        const bool takesShape = node.type() == "Shape" || node.type() == "Size";
        const bool depends = !takesShape && std::any_of(node.inputs.begin(), node.inputs.end(), [this](int tensor) {
            return tensor >= 0 && isValue_[static_cast<std::size_t>(tensor)] != 0;
        });
        for (const int output : node.outputs)
            if (output >= 0) isValue_[static_cast<std::size_t>(output)] = depends ? 1 : 0;
        return depends;
    }

    void refuse(const Node& node, const std::string& why, const std::string& advice) {
        endAt(node);
        lowered_.findings.push_back(
            {graph_.nameOf(node), node.type(), why, advice.empty() ? adviceFor(node.type()) : advice});
    }

    // What comes before the node shall be looked at, though no output needs it any more.
    void endAt(const Node& node) {
        for (const int input : node.inputs)
            if (input >= 0 && values_[static_cast<std::size_t>(input)])
                lowered_.ends.push_back(values_[static_cast<std::size_t>(input)]->step);
    }

    void lowerNode(const Node& node) {
        lowered_.program.setOrigin({graph_.nameOf(node), node.type()});
        const LowerFunction function = loweringOf(node.type());
        const std::string& domain = node.proto.domain();
        // What depends on shapes alone is computed in advance, once the nodes before it can be converted.
        if (!dependsOnValues(node) && node.error.empty()) {
            if (isTooLarge(node))
                refuse(node,
                       "makes " + describeDims(graph_.dimsOf(firstOutput(node))) +
                           " of constants, which is too large to be computed in advance",
                       "store the result in the file instead of computing it");
            return;
        }
        if (node.type() == "If" && domain.empty() && !node.inputs.empty() && graph_.known(node.inputs[0])) {
            refuse(node, "takes another branch for another batch", "export with a fixed batch of 1");
        } else if (!domain.empty()) {
            refuse(node, "an operator of the domain " + inQuotes(domain), adviceForDomain());
        } else if (!node.error.empty() && (function || node.isKnownOperator)) {
            refuse(node, node.error, node.advice.empty() ? adviceForShapes(node.type()) : node.advice);
        } else if (!function) {
            refuse(node, "no operation of nolk's does this" + inputShapes(node), "");
        } else if (!isReady(node)) {
            ++lowered_.unseenNodes;
            endAt(node);
            return;
        } else {
            carryOut(node, function);
        }
        substitute(node);
    }

    static int firstOutput(const Node& node) {
        return *std::find_if(node.outputs.begin(), node.outputs.end(), [](int output) { return output >= 0; });
    }

    // Whether all inputs are constants, and still the result is none.
    bool isTooLarge(const Node& node) const {
        const bool isConstant = std::all_of(node.inputs.begin(), node.inputs.end(),
                                            [this](int tensor) { return tensor < 0 || graph_.known(tensor); });
        return isConstant && graph_.tensors[static_cast<std::size_t>(firstOutput(node))].hasShape;
    }

    // " to [1, 3, 8, 8], [1, 4]": what is computed from the network's inputs. Nothing where no shape is known.
    std::string inputShapes(const Node& node) const {
        std::string text;
        for (const int input : node.inputs)
            if (input >= 0 && !graph_.known(input) && graph_.tensors[static_cast<std::size_t>(input)].hasShape)
                text += (text.empty() ? " to " : ", ") + describeDims(graph_.dimsOf(input));
        return text;
    }

    bool isReady(const Node& node) const {
        for (const std::vector<int>* tensors : {&node.inputs, &node.outputs})
            for (const int tensor : *tensors)
                if (tensor >= 0 && !graph_.tensors[static_cast<std::size_t>(tensor)].hasShape) return false;
        return std::all_of(node.inputs.begin(), node.inputs.end(), [this](int tensor) {
            return tensor < 0 || graph_.known(tensor) || values_[static_cast<std::size_t>(tensor)];
        });
    }

    void carryOut(const Node& node, LowerFunction function) {
        try {
            checkTypes(node);
            NodeLowering lowering(graph_, node, values_, lowered_.program);
            function(lowering);
            for (std::size_t i = 0; i < node.outputs.size(); ++i)
                if (lowering.wants(i) && !values_[static_cast<std::size_t>(node.outputs[i])])
                    refuse(node, "output " + std::to_string(i) + " is used, which is not converted",
                           "use the first output only");
        } catch (const Refusal& refusal) {
            refuse(node, refusal.what(), refusal.advice);
        } catch (const OverBudget& error) {
            refuse(node, error.what(), "store what the network needs in the file, or use smaller extents there");
        } catch (const std::out_of_range& error) {
            refuse(node, error.what(), "make the network smaller there");
        } catch (const OnnxError& error) {
            refuse(node, error.what(), error.advice);
        }
    }

    // Everything is computed in floats; integers only pass through where nothing is computed.
    void checkTypes(const Node& node) const {
        for (const int input : node.inputs)
            if (input >= 0) checkIsNumbers(input);
        static const std::set<std::string> kMoving{"Concat", "Expand", "Flatten", "Gather",    "Identity", "Reshape",
                                                   "Slice",  "Split",  "Squeeze", "Transpose", "Tile",     "Unsqueeze"};
        for (const int output : node.outputs) {
            if (output < 0) continue;
            const GraphTensor& tensor = graph_.tensors[static_cast<std::size_t>(output)];
            if (!isFloatType(tensor.type) && node.type() != "Cast" && node.type() != "MaxPool" &&
                kMoving.count(node.type()) == 0)
                throw Refusal("computes with " + typeName(tensor.type) + " that depends on the network's input",
                              kHostsPart);
            if (elementCount(tensor.dims) == 0)
                throw Refusal("an empty result " + describeDims(tensor.dims), "remove the node");
        }
    }

    // Of strings and complex numbers not even the order changes here.
    void checkIsNumbers(int tensor) const {
        const int type = graph_.tensors[static_cast<std::size_t>(tensor)].type;
        if (type != onnx::TensorProto::UNDEFINED && !isFloatType(type) && !isIntType(type))
            throw Refusal(inQuotes(graph_.nameOf(tensor)) + " holds values of the type " + typeName(type), kHostsPart);
    }

    // Tensors that a refused node should have made, so that the nodes behind it can be looked at, too.
    void substitute(const Node& node) {
        if (lowered_.findings.empty()) return;
        for (const int output : node.outputs) {
            if (output < 0) continue;
            const GraphTensor& tensor = graph_.tensors[static_cast<std::size_t>(output)];
            std::optional<Placed>& value = values_[static_cast<std::size_t>(output)];
            if (value || !tensor.hasShape || elementCount(tensor.dims) == 0 || elementCount(tensor.dims) > INT32_MAX)
                continue;
            const int count = asInt(elementCount(tensor.dims));
            value = placed(lowered_.program.input({1, 1, 1, count, 3}), tensor.dims);
        }
    }

    const Graph& graph_;
    std::vector<std::optional<Placed>> values_;
    std::vector<char> isValue_;  // by tensor, see dependsOnValues
    Lowered lowered_;
};

}  // namespace

Lowered lowerGraph(const Graph& graph, const std::vector<int>& wanted) { return GraphLowering(graph).lower(wanted); }

}  // namespace convert
