#include "inspect/BuiltNetwork.h"

#include <algorithm>
#include <exception>
#include <map>
#include <unordered_map>

#include "builder/shapes.h"
#include "inspect/RecordWalk.h"
#include "inspect/counts.h"
#include "inspect/peakBytes.h"
#include "layers/ConvolutionLayerFactory.h"
#include "model/operations.h"

namespace {

constexpr std::int64_t kFloatBytes = sizeof(float);

// Fusion may add a bias to a convolution; all other layers keep the parameters of their call.
std::int64_t parametersOf(const LayerFactory& factory, const nolk::ModelOperation& operation) {
    const auto* convolution = dynamic_cast<const ConvolutionLayerFactory*>(&factory);
    if (!convolution) return operation.parameterCount;
    const nolk::Weights& w = convolution->weights;
    const std::int64_t groups = w.shared ? 1 : w.groups;
    return productOf({groups, w.outChannels, w.inChannels, w.kernelH, w.kernelW}) +
           (w.bias ? productOf({groups, w.outChannels}) : 0);
}

// Finds out which tensors use which range of the arena, and for how long.
class ArenaRanges {
public:
    explicit ArenaRanges(const float* start) : start_(start) {}

    void make(const nolk::TensorX& tensor, int operation, int step) {
        const RawTensor* raw = tensor.rawTensor.get();
        const auto found = places_.find(raw);
        if (found != places_.end()) {
            ranges_[found->second].operations.push_back(operation);
        } else if (raw->size > 0) {
            places_[raw] = ranges_.size();
            ranges_.push_back({(raw->data - start_) * kFloatBytes, raw->size * kFloatBytes, step, -1, {operation}});
        }
    }

    void use(const nolk::TensorX& tensor, int step) {
        const auto found = places_.find(tensor.rawTensor.get());
        if (found == places_.end()) return;  // a constant, or empty
        nolk::ArenaRange& range = ranges_[found->second];
        range.lastStep = std::max(range.lastStep, step);
    }

    // A range that is never read is never freed, so it lasts until the last step.
    std::vector<nolk::ArenaRange> ranges(int lastStep) {
        for (nolk::ArenaRange& range : ranges_)
            if (range.lastStep < 0) range.lastStep = lastStep;
        return ranges_;
    }

private:
    const float* start_;
    std::vector<nolk::ArenaRange> ranges_;
    std::map<const RawTensor*, std::size_t> places_;
};

// Tensors that all use the same floats, because a network may have the same large output very many times.
struct HostTensors {
    explicit HostTensors(const std::vector<nolk::TensorShape>& shapes) {
        int most = 1;  // never null
        for (const nolk::TensorShape& shape : shapes) most = std::max(most, elementCount(shape));
        values.resize(static_cast<std::size_t>(most));
        for (const nolk::TensorShape& shape : shapes) tensors.push_back({shape, values.data()});
        tensors.reserve(1);  // so that the array is not null either
    }

    std::vector<float> values;
    std::vector<nolk::Tensor> tensors;
};

}  // namespace

BuiltNetwork::BuiltNetwork(ModelFile& file, int batch) : builder_(new RawRunnerBuilder(nullptr)) {
    RecordWalk walk(file, batch, *builder_);
    while (walk.next()) {
        if (walk.record().hasOutput()) made_.push_back(walk.model().tensors[walk.record().output]);
        file.releaseBefore(walk.record().end);
    }
    walk.finish();
    outputs_ = walk.model().outputs;
    try {
        runner_.reset(static_cast<BaseRunner*>(builder_->build(outputs_.data(), static_cast<int>(outputs_.size()))));
    } catch (const std::exception& e) {
        throw nolk::ModelError(e.what());
    }
}

void BuiltNetwork::describe(nolk::ModelInfo& info) const {
    info.isBuilt = true;
    addLayers(info);
    for (const nolk::ModelOperation& operation : info.operations)
        info.afterFusion.parameters = sumOf(info.afterFusion.parameters, operation.parametersKept);
    info.afterFusion.operations = static_cast<std::int64_t>(info.layers.size());
    info.afterFusion.weightBytes = productOf({info.afterFusion.parameters, kFloatBytes});
    info.arenaBytes = runner_->arena() ? runner_->arena()->size() * kFloatBytes : 0;
    if (info.arenaBytes > 0) addArena(info);
}

// Fills in the layers of operations that have been absorbed. The layer is either the producer's, which then has the
// operation's output, or that of its first consumer.
void BuiltNetwork::addAbsorbing(nolk::ModelInfo& info) const {
    std::unordered_map<const nolk::TensorX*, int> layerWith;
    const auto& factories = builder_->factories();
    for (std::size_t i = 0; i < factories.size(); ++i) layerWith[factories[i]->output()] = static_cast<int>(i);
    std::vector<int> firstConsumer(info.operations.size(), -1);
    for (std::size_t i = info.operations.size(); i-- > 0;)
        for (const int input : info.operations[i].inputs)
            if (input >= 0) firstConsumer[static_cast<std::size_t>(input)] = static_cast<int>(i);

    // From the last to the first, so that the layers of consumers are already known.
    for (std::size_t place = info.operations.size(); place-- > 0;) {
        nolk::ModelOperation& operation = info.operations[place];
        if (!operation.isMade || operation.layer >= 0) continue;
        if (operation.name == "input" || operation.name == "constTensor") {
            operation.parametersKept = operation.parameterCount;
            continue;
        }
        operation.isFused = true;
        const auto found = layerWith.find(made_[place]);
        const int consumer = firstConsumer[place];
        if (found != layerWith.end())
            operation.layer = found->second;
        else if (consumer >= 0)
            operation.layer = info.operations[static_cast<std::size_t>(consumer)].layer;
    }
}

void BuiltNetwork::addLayers(nolk::ModelInfo& info) const {
    const auto& factories = builder_->factories();
    for (std::size_t i = 0; i < factories.size(); ++i) {
        const LayerFactory& factory = *factories[i];
        nolk::ModelOperation& operation = info.operations[static_cast<std::size_t>(factory.call)];
        operation.layer = static_cast<int>(i);
        operation.parametersKept = parametersOf(factory, operation);
        info.layers.push_back({runner_->layers()[i]->desc, factory.call, factory.output()->shape});
    }
    addAbsorbing(info);
}

void BuiltNetwork::addArena(nolk::ModelInfo& info) const {
    ArenaRanges ranges(runner_->arena()->locate(0));
    const auto& factories = builder_->factories();
    const int lastStep = static_cast<int>(factories.size()) + 1;
    for (std::size_t i = 0; i < info.inputs.size(); ++i) ranges.make(*builder_->inputs()[i], info.inputs[i], 0);
    for (std::size_t i = 0; i < factories.size(); ++i) {
        const int step = static_cast<int>(i) + 1;
        for (const nolk::TensorX* input : factories[i]->inputs) ranges.use(*input, step);
        for (const auto& output : factories[i]->outputs) ranges.make(*output, factories[i]->call, step);
    }
    for (const nolk::TensorX* output : outputs_) ranges.use(*output, lastStep);
    info.arenaRanges = ranges.ranges(lastStep);
}

void BuiltNetwork::runOnce(nolk::ModelInfo& info) {
    HostTensors inputs(runner_->inputShapes()), outputs(runner_->outputShapes());
    const bool ran = runner_->run(inputs.tensors.data(), static_cast<int>(inputs.tensors.size()),
                                  outputs.tensors.data(), static_cast<int>(outputs.tensors.size()));
    if (!ran) throw nolk::ModelError("a run on zeros failed");
    info.scratchBytes = runner_->scratch().size() * kFloatBytes;
    info.peakBytes = peakBytes();
}
