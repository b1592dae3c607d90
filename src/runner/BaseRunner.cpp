#include "runner/BaseRunner.h"

#include <chrono>
#include <utility>

#include "runner/checkTensors.h"

namespace {

std::int64_t nanoseconds() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

BaseRunner::BaseRunner(std::vector<std::unique_ptr<Layer>> layers, const std::vector<nolk::TensorX*>& inputs,
                       const std::vector<nolk::TensorX*>& outputs, std::unique_ptr<MemoryPool> pool,
                       std::vector<FloatBuffer> constData)
    : pool_(std::move(pool)), layers_(std::move(layers)), constData_(std::move(constData)) {
    for (const nolk::TensorX* t : inputs) {
        writers_.push_back(t->createWriter());
        inputShapes_.push_back(t->shape);
    }
    for (const nolk::TensorX* t : outputs) {
        readers_.push_back(t->createReader());
        outputShapes_.push_back(t->shape);
    }
}

bool BaseRunner::run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) {
    if (!isValid(inputs, inputCount, outputs, outputCount)) return false;
    fillInputs(inputs);
    runAllLayers();
    fillOutputs(outputs);
    return true;
}

void BaseRunner::destroy() { delete this; }

nolk::LayerDescription BaseRunner::layer(std::int32_t index) const {
    const Layer* const layer = layers_[static_cast<std::size_t>(index)].get();
    if (!layer) return {};
    return {layer->desc.c_str(), layer->getOutputTensor().shape, layer->call};
}

bool BaseRunner::runTimed(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount,
                          std::int64_t* times) {
    if (!isValid(inputs, inputCount, outputs, outputCount)) return false;
    *times++ = nanoseconds();
    fillInputs(inputs);
    *times++ = nanoseconds();
    for (const auto& layer : layers_) {
        if (layer) layer->run(memory_);
        *times++ = nanoseconds();
    }
    fillOutputs(outputs);
    return true;
}

bool BaseRunner::isValid(const nolk::Tensor* inputs, int inputCount, const nolk::Tensor* outputs,
                         int outputCount) const {
    return tensorsMatch(inputs, inputCount, inputShapes_) && tensorsMatch(outputs, outputCount, outputShapes_);
}

void BaseRunner::fillInputs(const nolk::Tensor* inputs) {
    for (std::size_t i = 0; i < writers_.size(); ++i) writers_[i]->writeNCHW(inputs[i].data);
}

void BaseRunner::runAllLayers() {
    for (const auto& layer : layers_)
        if (layer) layer->run(memory_);
}

void BaseRunner::fillOutputs(const nolk::Tensor* outputs) {
    for (std::size_t i = 0; i < readers_.size(); ++i) readers_[i]->readNCHW(outputs[i].data);
}
