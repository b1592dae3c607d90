#include "nolk/info/ExaminedModel.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "layers/ConvolutionLayerFactory.h"
#include "nolk/model/HostTensor.h"
#include "inspect/OperationLog.h"
#include "inspect/counts.h"
#include "inspect/limits.h"
#include "nolk/model/peakBytes.h"

namespace {

std::int64_t bytesOf(int floats) { return std::int64_t{floats} * static_cast<int>(sizeof(float)); }

// Fusion gives a convolution a bias; all other layers hold what their call brought.
std::int64_t parametersOf(const LayerFactory& factory, const LoggedOperation& noted) {
    const auto* convolution = dynamic_cast<const ConvolutionLayerFactory*>(&factory);
    if (!convolution) return noted.parameters;
    const nolk::Weights& w = convolution->weights;
    const std::int64_t groups = w.shared ? 1 : w.groups;
    return productOf({groups, w.outChannels, w.inChannels, w.kernelH, w.kernelW}) +
           (w.bias ? productOf({groups, w.outChannels}) : 0);
}

}  // namespace

ExaminedModel::ExaminedModel(const std::string& path, int batch) : file_(path) {
    for (const Finding& finding : file_.findings())
        if (finding.isError) fail(describe(finding));
    takeNotes(batch);
    build(batch);
    if (runner_) runOnce();
}

void ExaminedModel::fail(const std::string& why) const { throw std::runtime_error(file_.path() + ": " + why); }

void ExaminedModel::takeNotes(int batch) {
    OperationLog notes;
    RecordWalk walk(file_, batch, notes);
    std::vector<nolk::TensorX*> outputs;
    while (walk.next()) {
        const Record& record = walk.record();
        if (!record.failure.empty()) fail(describe({true, record.place(), record.begin, record.failure}));
        walk.model().arrays.clear();  // notes keep none
        if (record.hasOutput) operations_.push_back({record, notes.operations().back()});
    }
    for (const nolk::TensorX* output : walk.model().outputs) {
        if (!output) fail("output " + std::to_string(outputs_.size()) + " depends on an undefined id");
        outputs_.push_back(notes.placeOf(output));
    }
    remark_ = tooLargeToBuild(notes.operations(), outputs_);
    unfit_ = unfitToRun(notes.operations());
}

void ExaminedModel::build(int batch) {
    builder_.reset(new RawRunnerBuilder(nullptr));
    if (!remark_.empty()) {
        remark_ = "not built: " + remark_;
        return;
    }
    RecordWalk walk(file_, batch, *builder_);
    std::vector<const LayerFactory*> recorded;
    std::vector<const nolk::TensorX*> made;
    std::size_t factoryCount = 0;
    while (walk.next()) {
        if (!walk.record().hasOutput) continue;
        const bool isRecorded = builder_->factories().size() > factoryCount;
        factoryCount = builder_->factories().size();
        recorded.push_back(isRecorded ? builder_->factories().back().get() : nullptr);
        made.push_back(isRecorded ? recorded.back()->output() : nullptr);
    }
    outputTensors_ = walk.model().outputs;
    try {
        runner_.reset(
            static_cast<BaseRunner*>(builder_->build(outputTensors_.data(), static_cast<int>(outputTensors_.size()))));
    } catch (const std::exception& e) {
        fail(e.what());
    }
    findLayers(recorded, made);
}

// recorded, made: before fusion, each operation's factory and its output. Fusion takes an operation into its producer,
// which then has its output, or into its only consumer.
void ExaminedModel::findLayers(const std::vector<const LayerFactory*>& recorded,
                               const std::vector<const nolk::TensorX*>& made) {
    std::map<const LayerFactory*, int> layers;
    std::map<const nolk::TensorX*, int> makers;
    for (const auto& factory : factories()) {
        const int layer = static_cast<int>(layers.size());
        layers[factory.get()] = layer;
        makers[factory->output()] = layer;
    }
    operationOfLayer_.assign(layers.size(), -1);
    // From the end, so that a consumer's layer is known.
    for (int place = static_cast<int>(operations_.size()) - 1; place >= 0; --place) {
        const auto index = static_cast<std::size_t>(place);
        ExaminedOperation& operation = operations_[index];
        const LayerFactory* factory = recorded[index];
        if (!factory) {
            operation.parametersKept = operation.noted.isMade ? operation.noted.parameters : 0;
        } else if (layers.count(factory) > 0) {
            operation.layer = layers[factory];
            operation.parametersKept = parametersOf(*factory, operation.noted);
            operationOfLayer_[static_cast<std::size_t>(operation.layer)] = place;
        } else {
            operation.isFused = true;
            operation.layer = makers.count(made[index]) > 0 ? makers[made[index]] : layerOfConsumer(place);
        }
    }
}

int ExaminedModel::layerOfConsumer(int place) const {
    for (const ExaminedOperation& consumer : operations_) {
        const auto& inputs = consumer.noted.inputs;
        if (std::find(inputs.begin(), inputs.end(), place) != inputs.end()) return consumer.layer;
    }
    return -1;
}

void ExaminedModel::runOnce() {
    memory_.arenaBytes = runner_->arena() ? bytesOf(runner_->arena()->size()) : 0;
    if (!unfit_.empty()) {
        remark_ = "not run: " + unfit_;
        return;
    }
    std::vector<HostTensor> inputs = hostTensors(runner_->inputShapes()),
                            outputs = hostTensors(runner_->outputShapes());
    try {
        runStrictly(*runner_, inputs, outputs);
    } catch (const std::runtime_error& e) {
        fail(std::string("a run on zeros failed: ") + e.what());
    }
    memory_.scratchBytes = bytesOf(runner_->scratch().size());
    memory_.peakBytes = peakBytes().value_or(-1);
}
