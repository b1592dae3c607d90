// The part of a builder that does not depend on the operations: keeps inputs, constants and factories, and turns them
// into a runner. A derived class implements each operation by making its factory and calling addLayerReturnOutputs.
// build() protects the outputs from fusion, checks, fuses, connects, plans memory and creates the layers. Layers run in
// the order in which their operations were recorded; every operation is recorded after those that make its inputs.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

#include "builder/ArenaLimit.h"
#include "builder/LayerFactory.h"
#include "layers/Layer.h"
#include "memory/FloatArrays.h"
#include "memory/FloatKeeper.h"
#include "memory/MemoryPool.h"
#include "runner/BaseRunner.h"

class BaseRunnerBuilder : public nolk::RunnerBuilder, public FloatKeeper, public ArenaLimit {
public:
    nolk::TensorX* input(nolk::TensorShape shape) override;
    nolk::TensorX* constTensor(nolk::Tensor* tensor) override;
    nolk::TensorShape shapeOf(nolk::TensorX* x) override;
    nolk::Runner* build(nolk::TensorX** outputs, int count) override;
    void destroy() override;

    // Layers and constants take over the arrays that they can use unchanged; build releases the others.
    float* keep(FloatBuffer array) override { return givenArrays_.add(std::move(array)); }

    void limitArena(std::int64_t floats) override { mostArenaFloats_ = floats; }

    // For programs that examine a network. After build these are the factories that remain after fusion, in execution
    // order: factory i created the runner's layer i, and all tensors have addresses.
    const std::vector<std::unique_ptr<LayerFactory>>& factories() const { return factories_; }
    const std::vector<std::unique_ptr<nolk::TensorX>>& inputs() const { return inputs_; }

protected:
    BaseRunnerBuilder() = default;
    virtual ~BaseRunnerBuilder() = default;

    // Whether all inputs of a call are tensors of this builder; if not, the call must not record anything. False for a
    // null input and for another builder's tensor; the latter also makes build throw.
    bool areOwn(const std::vector<nolk::TensorX*>& tensors);

    // These take over what they get, or throw std::bad_alloc and do not change the builder.
    std::vector<nolk::TensorX*> addLayerReturnOutputs(std::unique_ptr<LayerFactory> factory);
    nolk::TensorX* addInputReturn(std::unique_ptr<nolk::TensorX> tensor);
    nolk::TensorX* addConstTensorReturn(std::unique_ptr<nolk::TensorX> tensor, FloatBuffer data);

    // Adds the factory that make returns for these inputs. If that throws, the inputs do not name it as a consumer.
    template <typename Make>
    nolk::TensorX* addLayer(const std::vector<nolk::TensorX*>& inputs, Make make) {
        std::vector<std::size_t> consumers;
        for (const nolk::TensorX* t : inputs) consumers.push_back(t->consumers.size());
        try {
            return addLayerReturnOutputs(make()).front();
        } catch (...) {
            for (std::size_t i = 0; i < inputs.size(); ++i) inputs[i]->consumers.resize(consumers[i]);
            throw;
        }
    }

    // The first half of build, for a builder that makes another runner of the same operations: checks everything and
    // fuses. Afterwards factories() are what has to be computed. Returns the outputs; throws what build throws.
    std::vector<nolk::TensorX*> prepare(nolk::TensorX** outputs, int count);

    // Throws std::length_error if the arena would be larger than limitArena allows.
    void checkArena(std::int64_t floats) const;

    // Arrays that were handed over and that no layer has taken yet.
    FloatArrays& givenArrays() { return givenArrays_; }

    // The arrays of all constants, in the order of the calls. A runner that reads them later takes them.
    std::vector<FloatBuffer>& constants() { return constData_; }

private:
    std::vector<nolk::TensorX*> checkedOutputs(nolk::TensorX** outputs, int count);
    void check() const;
    void fuse();
    void connect();
    std::vector<std::unique_ptr<Layer>> createLayers();
    std::vector<LayerFactory*> borrowedFactories() const;

    std::vector<std::unique_ptr<nolk::TensorX>> constTensors_;
    std::vector<std::unique_ptr<nolk::TensorX>> inputs_;  // in the order that run expects
    std::vector<std::unique_ptr<LayerFactory>> factories_;
    std::vector<std::unique_ptr<LayerFactory>> absorbed_;   // by fusion; tensors may still list them as consumers
    std::vector<std::unique_ptr<LayerFactory>> sentinels_;  // one for each output of the network
    FloatArrays givenArrays_;
    std::vector<FloatBuffer> constData_;            // of constTensors_; build moves them to the runner
    std::unordered_set<const nolk::TensorX*> own_;  // every tensor that this builder has returned
    int calls_ = 0;                                 // number of calls that make a tensor, including failed ones
    bool tookForeign_ = false;                      // an operation was given another builder's tensor
    bool built_ = false;
    std::int64_t mostArenaFloats_ = INT64_MAX;
};
