#include "convert/conversion.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>

#include "convert/batchValues.h"
#include "convert/evaluate/evaluateGraph.h"
#include "convert/graph/GraphEditor.h"
#include "convert/graph/branches.h"
#include "convert/graph/rewrite.h"
#include "convert/headInfo.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

using InputDims = std::map<std::string, Dims>;

// Results of the networks of scripts/zoo change by up to 2.5 % of an output's largest value.
constexpr double kLossyTolerance = 0.1;

// The axis whose free extent is called like a batch, by the clearest of the names; -1 where none is.
int axisCalledBatch(const ModelInput& input) {
    const auto isBatchName = [](const std::string& name) { return name.rfind("batch", 0) == 0; };
    const auto isB = [](const std::string& name) { return name == "B" || name == "b" || name == "bs"; };
    const auto isN = [](const std::string& name) { return name == "N" || name == "n"; };
    const std::vector<std::string>& names = input.parameters;
    for (const auto& found :
         {std::find_if(names.begin(), names.end(), isBatchName), std::find_if(names.begin(), names.end(), isB),
          std::find_if(names.begin(), names.end(), isN)})
        if (found != names.end()) return static_cast<int>(found - names.begin());
    return -1;
}

// Whether the second extent of [t, n, d] is the batch's, and the first a length. dims: the extents as far as they are
// known.
bool isTimeMajor(const ModelInput& input, const Dims& dims) {
    const bool bothAreFree = input.dims.size() == 3 && input.dims[0] < 0 && input.dims[1] < 0;
    return bothAreFree && input.isSequence && dims.size() == 3;
}

// Whether a free extent is the batch's: one that is called so, or the first, or the second of a sequence [t, n, d]
// whose length is fixed or which a recurrent node takes. dims: the input's extents as far as they are known.
bool isBatch(const ModelInput& input, const Dims& dims, std::size_t axis) {
    const int called = axisCalledBatch(input);
    if (called >= 0) return axis == static_cast<std::size_t>(called);
    if (isTimeMajor(input, dims)) return axis == 1;
    return axis == 0 || (axis == 1 && dims.size() == 3 && dims[0] > 1);
}

// Whether several extents are free, and nothing says which of them is the batch's.
bool isBatchGuessed(const ModelInput& input) {
    const auto free = std::count(input.dims.begin(), input.dims.end(), -1);
    return free > 1 && axisCalledBatch(input) < 0 && !isTimeMajor(input, input.dims);
}

// "image=1,3,N,N"
std::string shapeArgument(const ModelInput& input, const Dims& dims) {
    std::string text;
    for (const std::int64_t extent : dims)
        text += (text.empty() ? "" : ",") + (extent < 0 ? "N" : std::to_string(extent));
    return "--shape " + printableName(input.name) + "=" + text;
}

std::string namesOf(const std::vector<ModelInput>& inputs) {
    std::string text;
    for (const ModelInput& input : inputs) text += (text.empty() ? "" : ", ") + inQuotes(input.name);
    return text;
}

std::string joined(const std::vector<std::string>& texts, const char* between) {
    std::string text;
    for (const std::string& part : texts) text += (text.empty() ? "" : between) + part;
    return text;
}

void checkGivenShapes(const std::vector<ModelInput>& inputs, const ConvertOptions& options) {
    std::vector<std::string> faults;
    for (const auto& [name, dims] : options.shapes) {
        const auto input =
            std::find_if(inputs.begin(), inputs.end(), [&n = name](const auto& i) { return i.name == n; });
        if (input == inputs.end())
            faults.push_back("no input is named " + inQuotes(name) + "; the model has " + namesOf(inputs));
        else if (input->hasShape && dims.size() != input->dims.size())
            faults.push_back("input " + inQuotes(name) + " has " + std::to_string(input->dims.size()) +
                             " dimensions, not " + std::to_string(dims.size()) + ": " +
                             shapeArgument(*input, input->dims) + ", with numbers for N");
    }
    if (!faults.empty()) throw OnnxError("--shape: " + joined(faults, "; "));
}

// The input's extents as the file or the user gives them, -1 for one that nobody gives; a free batch is 1.
Dims givenDims(const ModelInput& input, const ConvertOptions& options) {
    const auto shape = options.shapes.find(input.name);
    if (shape != options.shapes.end()) return shape->second;
    Dims dims = input.dims;
    for (std::size_t axis = 0; axis < dims.size(); ++axis)
        if (dims[axis] < 0 && isBatch(input, input.dims, axis)) dims[axis] = 1;
    return dims;
}

// All faults are told at once, so that one more try is enough.
InputDims givenDims(const Model& model, const ConvertOptions& options) {
    const std::vector<ModelInput> inputs = inputsOf(model);
    if (inputs.empty()) throw OnnxError("the model has no input; a network without any has nothing to compute");
    if (model.graph().output_size() == 0) throw OnnxError("the model has no output; name those that are wanted");
    checkGivenShapes(inputs, options);
    InputDims result;
    std::vector<std::string> faults;
    std::string missing;
    bool isGuessed = false;
    for (const ModelInput& input : inputs) {
        const Dims dims = givenDims(input, options);
        result[input.name] = dims;
        constexpr std::int64_t kMost = INT32_MAX;
        if (!input.hasShape && options.shapes.count(input.name) == 0) {
            faults.push_back("input " + inQuotes(input.name) + " has no shape: give it by --shape " +
                             printableName(input.name) + "=1,3,224,224");
        } else if (std::any_of(dims.begin(), dims.end(), [](std::int64_t extent) { return extent < 0; })) {
            missing += " " + shapeArgument(input, dims);
            isGuessed = isGuessed || isBatchGuessed(input);
        } else if (elementCount(dims) == 0 || elementCount(dims) > kMost) {
            faults.push_back("input " + inQuotes(input.name) +
                             (elementCount(dims) == 0 ? " is empty: " : " is too large: ") + describeDims(dims) +
                             "; give it another shape by --shape");
        }
    }
    if (!missing.empty())
        faults.push_back("inputs have free extents: fix them by" + missing + ", with numbers for N" +
                         (isGuessed ? " and 1 for the batch, wherever that is" : ""));
    if (!faults.empty()) throw OnnxError(joined(faults, "; "));
    return result;
}

// Whether an input has a free batch behind its first axis, which then is no batch.
bool hasBatchBehindFirst(const Model& model, const InputDims& given) {
    for (const ModelInput& input : inputsOf(model))
        for (std::size_t axis = 1; axis < input.dims.size(); ++axis)
            if (input.dims[axis] < 0 && isBatch(input, given.at(input.name), axis)) return true;
    return false;
}

// The batch that all inputs have in front, if it is above 1.
std::int64_t fixedBatch(const Model& model, const InputDims& inputs) {
    if (hasBatchBehindFirst(model, inputs)) return 1;
    std::int64_t batch = 0;
    for (const auto& [name, dims] : inputs) {
        if (dims.empty() || dims[0] == 1 || (batch != 0 && dims[0] != batch)) return 1;
        batch = dims[0];
    }
    return batch;
}

// With another batch: at the first axis, or where the model leaves it free.
InputDims withBatch(const Model& model, InputDims inputs, std::int64_t batch) {
    for (const ModelInput& input : inputsOf(model)) {
        Dims& dims = inputs.at(input.name);
        std::size_t axis = 0;
        for (std::size_t i = input.dims.size(); i-- > 0;)
            if (input.dims[i] < 0 && dims[i] == 1 && isBatch(input, dims, i)) axis = i;
        if (!dims.empty()) dims[axis] *= batch;
    }
    return inputs;
}

// Whether the model leaves the batch of an input free, or says nothing of it.
bool hasFreeBatch(const Model& model, const InputDims& given) {
    for (const ModelInput& input : inputsOf(model)) {
        if (!input.hasShape) return true;
        for (std::size_t axis = 0; axis < input.dims.size(); ++axis)
            if (input.dims[axis] < 0 && isBatch(input, given.at(input.name), axis)) return true;
    }
    return false;
}

InputDims withSingleBatch(InputDims inputs) {
    for (auto& [name, dims] : inputs) dims[0] = 1;
    return inputs;
}

// Results for other batches show what follows the batch. Hardly any model compares with the large one.
constexpr std::int64_t kSmallBatch = 2, kLargeBatch = 997;

// Which axis of a tensor follows the batch.
struct BatchAxis {
    bool isKnown = false;
    int axis = -1;
};

// Shapes for another batch, by name; nothing where the model does not take it.
std::map<std::string, Value> shapesFor(const Model& model, const InputDims& inputs, std::int64_t batch) {
    try {
        return evaluateGraphShapes(model, withBatch(model, inputs, batch));
    } catch (const OnnxError&) {
        return {};
    }
}

BatchAxis batchAxisOf(const Dims& one, const std::map<std::string, Value>& more, const std::string& name,
                      std::int64_t batch) {
    const auto found = more.find(name);
    if (found == more.end() || found->second.dims.size() != one.size()) return {};
    BatchAxis result;
    for (std::size_t i = 0; i < one.size(); ++i) {
        if (found->second.dims[i] == one[i]) continue;
        if (result.isKnown || one[i] != 1 || found->second.dims[i] != batch) return {};
        result = {true, static_cast<int>(i)};
    }
    return result;
}

// LayerNormalization, and Softmax before opset 13, take all axes from theirs on together.
bool normalizesAlong(const Node& node, int opset, std::size_t rank, int axis) {
    constexpr int kSingleAxis = 13;
    const bool isOldSoftmax =
        node.type() != "LpNormalization" && node.type() != "LayerNormalization" && opset < kSingleAxis;
    std::int64_t given = integerOf(node, "axis", isOldSoftmax ? 1 : -1);
    if (given < 0) given += static_cast<std::int64_t>(rank);
    return isOldSoftmax || node.type() == "LayerNormalization" ? axis >= given : axis == given;
}

// Whether a Slice turns the order along the axis round; also where nobody knows.
bool hasNegativeStepAlong(const Graph& graph, const Node& node, int axis) {
    constexpr std::size_t kAxes = 3, kSteps = 4;
    if (node.inputs.size() <= kSteps || node.inputs[kSteps] < 0) return false;
    const Array *axes = graph.known(node.inputs[kAxes]), *steps = graph.known(node.inputs[kSteps]);
    if (steps == nullptr || steps->isFloat() || (axes == nullptr && node.inputs[kAxes] >= 0)) return true;
    if (axes != nullptr && axes->isFloat()) return true;
    const auto rank = static_cast<std::int64_t>(graph.dimsOf(node.inputs[0]).size());
    for (std::size_t i = 0; i < steps->ints().size(); ++i) {
        std::int64_t at = axes != nullptr && i < axes->ints().size() ? axes->ints()[i] : static_cast<std::int64_t>(i);
        if (at < 0) at += rank;
        if (at == axis && steps->ints()[i] < 0) return true;
    }
    return false;
}

// Whether the node computes along the axis of its first input, and so mixes samples where that is the batch's.
bool worksAlong(const Graph& graph, const Node& node, int axis) {
    static const std::set<std::string> kNormalizations{"LayerNormalization", "LogSoftmax", "LpNormalization",
                                                       "Softmax"};
    static const std::set<std::string> kRecurrent{"GRU", "LSTM", "RNN"};
    // The batch has to be their first axis.
    static const std::set<std::string> kBatchFirst{
        "AveragePool",           "Conv",   "ConvTranspose", "DepthToSpace", "GlobalAveragePool", "GlobalMaxPool",
        "InstanceNormalization", "LpPool", "MaxPool",       "SpaceToDepth"};
    const std::string& type = node.type();
    if (kNormalizations.count(type) != 0)
        return normalizesAlong(node, graph.opset, graph.dimsOf(node.inputs[0]).size(), axis);
    if (kRecurrent.count(type) != 0) return axis != (integerOf(node, "layout", 0) == 0 ? 1 : 0);
    if (kBatchFirst.count(type) != 0) return axis != 0;
    return type == "Slice" && hasNegativeStepAlong(graph, node, axis);
}

struct Batches {
    std::vector<BatchAxis> axes;  // for each of the graph's tensors
    bool isClean = true;          // every tensor has one axis that follows the batch, and no node mixes samples
    std::string mixing;           // the first node that does; empty where none does
};

// Compares the extents with `more`, those for another batch.
Batches batchesOf(const Graph& graph, const std::map<std::string, Value>& more, std::int64_t batch) {
    Batches batches;
    batches.axes.resize(graph.tensors.size());
    const auto note = [&](int tensor) {
        if (tensor < 0) return;
        const auto at = static_cast<std::size_t>(tensor);
        batches.axes[at] = batchAxisOf(graph.tensors[at].dims, more, graph.tensors[at].name, batch);
        batches.isClean = batches.isClean && batches.axes[at].isKnown;
    };
    for (const int input : graph.inputs) note(input);
    for (const Node& node : graph.nodes) {
        for (const int output : node.outputs) note(output);
        const int x = node.inputs.empty() ? -1 : node.inputs[0];
        if (x < 0 || !batches.axes[static_cast<std::size_t>(x)].isKnown) continue;
        if (!worksAlong(graph, node, batches.axes[static_cast<std::size_t>(x)].axis)) continue;
        batches.isClean = false;
        if (batches.mixing.empty()) batches.mixing = inQuotes(graph.nameOf(node)) + " (" + node.type() + ")";
    }
    return batches;
}

std::vector<TensorPlace> placesOf(const Graph& graph, const Batches& batches, const std::vector<int>& tensors) {
    std::vector<TensorPlace> places;
    for (const int tensor : tensors) {
        const auto at = static_cast<std::size_t>(tensor);
        const BatchAxis axis = batches.axes[at];
        // Alone, any axis of one element will do: the first. A constant has no batch where samples are not alone.
        const bool isAlone = !batches.isClean || graph.known(tensor) == nullptr;
        const bool startsWithOne = isAlone && !graph.tensors[at].dims.empty() && graph.tensors[at].dims[0] == 1;
        places.push_back({graph.tensors[at].name, {}, axis.isKnown ? axis.axis : (startsWithOne ? 0 : -1)});
    }
    return places;
}

struct Plan {
    InputDims inputs;
    Graph graph;
    Batches batches;
    std::int64_t freedBatch = 0;    // a batch above 1 that was taken for a free one
    std::vector<Finding> findings;  // nodes that use values which change with the batch
};

// A batch that no extent of the graph equals or divides: an equal one could be broadcast against it. A small one, for
// tensors of a large batch exceed what is evaluated.
std::int64_t unusedBatch(const Graph& graph) {
    std::set<std::int64_t> used;
    for (const GraphTensor& tensor : graph.tensors) used.insert(tensor.dims.begin(), tensor.dims.end());
    std::int64_t batch = 3;
    while (
        std::any_of(used.begin(), used.end(), [&](std::int64_t extent) { return extent > 1 && batch % extent == 0; }))
        batch += 2;
    return batch;
}

Plan planFor(const Model& model, const InputDims& inputs) {
    Plan plan{inputs, graphOf(model, inputs), {}, 0, {}};
    std::set<std::string> found;
    const auto compare = [&](const std::map<std::string, Value>& more, std::int64_t batch) {
        for (Finding& use : usesOfBatchValues(plan.graph, more, batch))
            if (found.insert(use.node).second) plan.findings.push_back(std::move(use));
    };
    const std::int64_t unused = unusedBatch(plan.graph);
    const std::map<std::string, Value> more = shapesFor(model, inputs, unused);
    plan.batches = batchesOf(plan.graph, more, unused);
    compare(more, unused);
    compare(shapesFor(model, inputs, kLargeBatch), kLargeBatch);
    const std::map<std::string, Value> two = shapesFor(model, inputs, kSmallBatch);
    compare(two, kSmallBatch);
    // What is computed from a batch that the file leaves free stands in the way; from a fixed one it is a constant.
    const bool isFree = hasFreeBatch(model, inputs);
    plan.batches.isClean = plan.batches.isClean && !two.empty() && (isFree || plan.findings.empty());
    if (!isFree) plan.findings.clear();
    return plan;
}

// A free extent that nobody calls a batch is none where a node works along it.
void checkBatchIsNoLength(const Model& model, const ConvertOptions& options, const Plan& plan) {
    if (plan.batches.mixing.empty()) return;
    for (const ModelInput& input : inputsOf(model)) {
        if (options.shapes.count(input.name) != 0 || axisCalledBatch(input) >= 0) continue;
        Dims dims = plan.inputs.at(input.name);
        for (std::size_t axis = 0; axis < dims.size(); ++axis) {
            if (input.dims[axis] >= 0 || !isBatch(input, dims, axis)) continue;
            dims[axis] = -1;
            throw OnnxError("node " + plan.batches.mixing + " works along the free extent of input " +
                            inQuotes(input.name) + ", which is no batch: fix it by " + shapeArgument(input, dims) +
                            ", with numbers for N");
        }
    }
}

// A batch that the file fixes is taken for a free one where every tensor follows it; otherwise the whole of it is one
// sample.
Plan planFor(const Model& model, const ConvertOptions& options) {
    const InputDims given = givenDims(model, options);
    const std::int64_t batch = fixedBatch(model, given);
    if (batch <= 1 || options.keepsBatch) {
        Plan plan = planFor(model, given);
        checkBatchIsNoLength(model, options, plan);
        return plan;
    }
    const InputDims single = withSingleBatch(given);
    try {
        Plan plan = planFor(model, single);
        plan.freedBatch = batch;
        const bool allHaveIt = std::all_of(plan.graph.outputs.begin(), plan.graph.outputs.end(), [&](int tensor) {
            return plan.batches.axes[static_cast<std::size_t>(tensor)].axis == 0;
        });
        // Extents for the file's own batch show what is cut or padded to a fixed length.
        if (plan.batches.isClean && plan.findings.empty() && allHaveIt &&
            batchesOf(plan.graph, shapesFor(model, single, batch), batch).isClean)
            return plan;
    } catch (const OnnxError&) {
        // The graph takes its own batch only.
    }
    return planFor(model, given);
}

// A file's fixed extents are no law, but a network may have been made for them alone.
void addRemarksOnShapes(const Model& model, const ConvertOptions& options, Conversion& conversion) {
    for (const ModelInput& input : inputsOf(model)) {
        const auto given = options.shapes.find(input.name);
        if (given == options.shapes.end() || !input.hasShape) continue;
        for (std::size_t axis = 0; axis < input.dims.size(); ++axis) {
            if (input.dims[axis] < 0 || input.dims[axis] == given->second[axis]) continue;
            conversion.remarks.push_back("input " + inQuotes(input.name) + ": --shape gives " +
                                         describeDims(given->second) + ", though the model has fixed extent " +
                                         std::to_string(axis) + " to " + std::to_string(input.dims[axis]));
            break;
        }
    }
}

// Takes inputs away that no output depends on: a host should not have to supply them.
void dropUnusedInputs(Graph& graph, const Lowered& lowered) {
    const auto isUnused = [&](int tensor) {
        return std::count(lowered.unusedInputs.begin(), lowered.unusedInputs.end(), tensor) != 0;
    };
    graph.inputs.erase(std::remove_if(graph.inputs.begin(), graph.inputs.end(), isUnused), graph.inputs.end());
}

void addRemarks(const Model& model, const Plan& plan, const Lowered& lowered, Conversion& conversion) {
    for (const int tensor : lowered.unusedInputs)
        conversion.remarks.push_back("no output depends on the values of input " + inQuotes(plan.graph.nameOf(tensor)) +
                                     ": the file has no such input");
    if (plan.freedBatch > 1)
        conversion.remarks.push_back("the batch of " + std::to_string(plan.freedBatch) +
                                     " is free in the file, which takes any");
    for (const int tensor : plan.graph.outputs) {
        const auto at = static_cast<std::size_t>(tensor);
        const std::string& name = plan.graph.tensors[at].name;
        const BatchAxis axis = plan.batches.axes[at];
        if (axis.isKnown && axis.axis > 0)
            conversion.remarks.push_back("output " + inQuotes(name) + " has the batch at axis " +
                                         std::to_string(axis.axis) + " in ONNX, and first in the file");
    }
    const std::vector<ModelInput> inputs = inputsOf(model);
    const bool startsWithTime = std::any_of(inputs.begin(), inputs.end(), [](const auto& in) { return in.isSequence; });
    const std::int64_t batch = fixedBatch(model, plan.inputs);
    if (batch > 1 && !startsWithTime)
        conversion.remarks.push_back("the model has fixed a batch of " + std::to_string(batch) +
                                     ": in the file these are one sample together");
    else if (!plan.batches.isClean)
        conversion.remarks.push_back(
            "the model has fixed its batch or joins samples: in the file every sample is computed on its own, as the "
            "model does for a batch of 1");
}

nolk::ModelFileOptions fileOptionsOf(const ConvertOptions& options) {
    nolk::ModelFileOptions file;
    file.version = options.version;
    file.lossy = options.lossy;
    return file;
}

// Operations that the file has no form for.
void addHindrances(const Lowered& lowered, const ConvertOptions& options, Conversion& conversion) {
    std::vector<int> ends = lowered.outputs;
    ends.insert(ends.end(), lowered.ends.begin(), lowered.ends.end());
    const char* const advice = options.version == 1
                                   ? "use --version 4, which has wider numbers, or make the network smaller"
                                   : "make the network smaller there";
    for (const Hindrance& hindrance : lowered.program.hindrances(ends, fileOptionsOf(options))) {
        conversion.findings.push_back({hindrance.origin.node, hindrance.origin.type, hindrance.why,
                                       hindrance.origin.node.empty() ? "convert the network in parts"
                                       : hindrance.hasWidePadding    ? "pad by a node Pad in front instead"
                                                                     : advice});
    }
}

// The graph's constants are freed: what is written is in the program.
void writeProgram(const Model& model, const ConvertOptions& options, Plan& plan, Lowered& lowered,
                  Conversion& conversion) {
    nolk::ModelFileOptions file = fileOptionsOf(options);
    if (options.version >= 2)
        file.headInfo = headInfoOf(model, plan.graph, conversion.remarks);
    else
        conversion.remarks.emplace_back("a file of version 1 has no place for names and metadata: they are left out");
    plan.graph = {};
    try {
        conversion.file.bytes = lowered.program.write(lowered.outputs, file);
        conversion.operations = lowered.program.written();
    } catch (const NotWritable& error) {
        addHindrances(lowered, options, conversion);
        if (conversion.findings.empty()) conversion.findings.push_back({"", "", error.what(), ""});
    }
}

// The converted file with all tensors of the graph as outputs that can be compared.
ConvertedFile withAllTensors(const Model& model, const ConvertOptions& options) {
    Plan plan = planFor(model, options);
    rewrite(plan.graph);
    std::vector<int> tensors;
    for (const Node& node : plan.graph.nodes)
        for (const int output : node.outputs)
            if (output >= 0 && static_cast<std::size_t>(output) < plan.batches.axes.size() &&
                (plan.batches.axes[static_cast<std::size_t>(output)].isKnown || !plan.batches.isClean))
                tensors.push_back(output);
    Lowered lowered = lowerGraph(plan.graph, tensors);
    dropUnusedInputs(plan.graph, lowered);
    ConvertedFile file;
    file.inputs = placesOf(plan.graph, plan.batches, plan.graph.inputs);
    file.outputs = placesOf(plan.graph, plan.batches, tensors);
    try {
        file.bytes = lowered.program.write(lowered.outputs, fileOptionsOf(options));
    } catch (const NotWritable&) {
        return {};  // so many outputs are too much for a file
    }
    return file;
}

Conversion converted(const Model& model, const ConvertOptions& options, Plan plan) {
    rewrite(plan.graph);
    Lowered lowered = lowerGraph(plan.graph, plan.graph.outputs);
    Conversion conversion;
    conversion.inputDims = plan.inputs;
    conversion.evaluateSamplesAlone = !plan.batches.isClean;
    conversion.hasFreedBatch = plan.freedBatch > 1;
    conversion.remarks = model.remarks;
    addRemarksOnShapes(model, options, conversion);
    conversion.findings = plan.findings;
    conversion.findings.insert(conversion.findings.end(), lowered.findings.begin(), lowered.findings.end());
    conversion.unseenNodes = lowered.unseenNodes;
    if (conversion.findings.empty()) addRemarks(model, plan, lowered, conversion);
    conversion.inputs = placesOf(plan.graph, plan.batches, plan.graph.inputs);
    dropUnusedInputs(plan.graph, lowered);
    conversion.file.inputs = placesOf(plan.graph, plan.batches, plan.graph.inputs);
    conversion.file.outputs = placesOf(plan.graph, plan.batches, plan.graph.outputs);
    if (conversion.findings.empty())
        writeProgram(model, options, plan, lowered, conversion);
    else
        addHindrances(lowered, options, conversion);
    return conversion;
}

}  // namespace

void takeBranches(Model& model, const ConvertOptions& options) {
    const InputDims given = givenDims(model, options);
    std::vector<InputDims> shapes{given};
    if (hasFreeBatch(model, given)) {
        const InputDims single = fixedBatch(model, given) > 1 ? withSingleBatch(given) : given;
        for (const std::int64_t batch : {std::int64_t{1}, kSmallBatch, std::int64_t{3}, kLargeBatch})
            shapes.push_back(withBatch(model, single, batch));
    }
    takeBranches(model, shapes);
}

Conversion convertModel(const Model& model, const ConvertOptions& options) {
    return converted(model, options, planFor(model, options));
}

Conversion convertModel(Model&& model, const ConvertOptions& options) {
    Plan plan = planFor(model, options);
    model.initializers.clear();
    return converted(model, options, std::move(plan));
}

CheckOptions checkOptionsFor(const Model& model, const ConvertOptions& options, const Conversion& conversion) {
    CheckOptions result;
    result.inputDims = conversion.inputDims;
    result.graphInputs = conversion.inputs;
    result.evaluateSamplesAlone = conversion.evaluateSamplesAlone;
    result.withAllTensors = [&model, options] { return withAllTensors(model, options); };
    if (options.lossy) result.tolerance = kLossyTolerance;
    return result;
}

}  // namespace convert
