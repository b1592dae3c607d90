// The runner of one built network. A run rejects tensors that the network was not built for, copies the inputs in, runs
// the layers and copies the outputs to the host. It owns layers, arena, constants and scratch memory, so the builder
// may be destroyed. Its batch size is fixed by the build. Only one thread may use it at a time.
#pragma once

#include <nolk.h>
#include <nolk_layers.h>

#include <memory>
#include <vector>

#include "builder/TensorX.h"
#include "layers/Layer.h"
#include "memory/AlignedMemory.h"
#include "memory/FloatBuffer.h"
#include "memory/MemoryPool.h"
#include "runner/NCHWReader.h"
#include "runner/NCHWWriter.h"

class BaseRunner final : public nolk::Runner, public nolk::LayeredRunner {
public:
    // Uses the addresses that inputs and outputs have now, so planning must be over. pool may be null, and so may
    // single layers.
    BaseRunner(std::vector<std::unique_ptr<Layer>> layers, const std::vector<nolk::TensorX*>& inputs,
               const std::vector<nolk::TensorX*>& outputs, std::unique_ptr<MemoryPool> pool,
               std::vector<FloatBuffer> constData);

    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override;
    void destroy() override;

    std::int32_t layerCount() const override { return static_cast<std::int32_t>(layers_.size()); }
    nolk::LayerDescription layer(std::int32_t index) const override;
    bool runTimed(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount,
                  std::int64_t* times) override;

    // For programs that examine a network.
    const std::vector<nolk::TensorShape>& inputShapes() const { return inputShapes_; }
    const std::vector<nolk::TensorShape>& outputShapes() const { return outputShapes_; }
    const std::vector<std::unique_ptr<Layer>>& layers() const { return layers_; }  // in execution order
    AlignedMemory<float>& scratch() { return memory_; }
    const MemoryPool* arena() const { return pool_.get(); }  // null when no tensor needed memory

private:
    bool isValid(const nolk::Tensor* inputs, int inputCount, const nolk::Tensor* outputs, int outputCount) const;
    void fillInputs(const nolk::Tensor* inputs);
    void runAllLayers();
    void fillOutputs(const nolk::Tensor* outputs);

    AlignedMemory<float> memory_{16};  // scratch
    std::unique_ptr<MemoryPool> pool_;
    std::vector<std::unique_ptr<NCHWWriter>> writers_;
    std::vector<std::unique_ptr<NCHWReader>> readers_;
    std::vector<nolk::TensorShape> inputShapes_;
    std::vector<nolk::TensorShape> outputShapes_;
    std::vector<std::unique_ptr<Layer>> layers_;
    std::vector<FloatBuffer> constData_;
};
