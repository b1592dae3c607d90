#include "builder/BaseRunnerBuilder.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "builder/OutputLayerFactory.h"
#include "builder/fuseAll.h"
#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/ownedFloats.h"
#include "memory/TensorSpace.h"

namespace {

constexpr int kArenaAlignment = 16;  // floats: a cache line

std::vector<nolk::TensorX*> borrowed(const std::vector<std::unique_ptr<nolk::TensorX>>& owned) {
    std::vector<nolk::TensorX*> tensors;
    for (const auto& t : owned) tensors.push_back(t.get());
    return tensors;
}

// Makes the next push_back unable to throw.
template <typename T>
void makeRoom(std::vector<T>& elements) {
    if (elements.size() == elements.capacity()) elements.reserve(2 * elements.size() + 1);
}

void checkExtents(const std::vector<std::unique_ptr<nolk::TensorX>>& tensors, const char* what) {
    for (const auto& t : tensors) {
        const nolk::TensorShape& s = t->shape;
        if (!isRepresentable(s))
            refuse("%s: at most 2^31 - 1 elements fit, shape is [%d, %d, %d, %d]", what, s.n, s.c, s.h, s.w);
    }
}

}  // namespace

nolk::TensorX* BaseRunnerBuilder::input(nolk::TensorShape shape) {
    auto tensor = std::make_unique<nolk::TensorX>(shape, false);
    tensor->setRawTensor(std::make_shared<RawTensor>());
    return addInputReturn(std::move(tensor));
}

nolk::TensorX* BaseRunnerBuilder::constTensor(nolk::Tensor* tensor) {
    if (!tensor) return nullptr;
    const bool hasElements = isRepresentable(tensor->shape) && elementCount(tensor->shape) > 0;
    if (hasElements && !tensor->data) {
        ++calls_;
        return nullptr;
    }

    FloatBuffer data = ownedFloats(tensor->data, hasElements ? elementCount(tensor->shape) : 0, &givenArrays_);
    if (!data) data = zeroedFloats(0);

    auto constant = std::make_unique<nolk::TensorX>(tensor->shape, true);
    auto raw = std::make_shared<RawTensor>();
    raw->data = data.get();
    constant->setRawTensor(raw);
    return addConstTensorReturn(std::move(constant), std::move(data));
}

nolk::TensorShape BaseRunnerBuilder::shapeOf(nolk::TensorX* x) {
    return own_.count(x) > 0 ? x->shape : nolk::TensorShape{0, 0, 0, 0, 0};
}

nolk::Runner* BaseRunnerBuilder::build(nolk::TensorX** outputs, int count) {
    // A second runner would have to own the same constants.
    if (built_) throw std::logic_error("build: a builder builds once");
    const std::vector<nolk::TensorX*> graphOutputs = checkedOutputs(outputs, count);
    check();
    built_ = true;

    std::vector<std::unique_ptr<LayerFactory>> sentinels;
    for (nolk::TensorX* t : graphOutputs) sentinels.push_back(std::make_unique<OutputLayerFactory>(t));
    fuse();
    connect();
    TensorSpace space(kArenaAlignment);
    std::unique_ptr<MemoryPool> pool = space.mallocAll(borrowedFactories(), borrowed(inputs_), graphOutputs);
    // The arena has been allocated, but takes no memory until it is written.
    if (pool && pool->size() > mostArenaFloats_)
        throw std::length_error("build: the arena needs " + std::to_string(pool->size()) + " floats, at most " +
                                std::to_string(mostArenaFloats_) + " are allowed");
    std::vector<std::unique_ptr<Layer>> layers = createLayers();
    sentinels.clear();
    return new BaseRunner(std::move(layers), borrowed(inputs_), graphOutputs, std::move(pool), std::move(constData_));
}

void BaseRunnerBuilder::destroy() { delete this; }

// Compares addresses only: a tensor of another builder may have been destroyed together with it.
bool BaseRunnerBuilder::areOwn(const std::vector<nolk::TensorX*>& tensors) {
    bool all = true;
    for (const nolk::TensorX* t : tensors) {
        const bool own = own_.count(t) > 0;
        all = all && own;
        tookForeign_ = tookForeign_ || (t && !own);
    }
    if (!all) ++calls_;  // failed calls are counted too
    return all;
}

// Everything that may throw comes first.
std::vector<nolk::TensorX*> BaseRunnerBuilder::addLayerReturnOutputs(std::unique_ptr<LayerFactory> factory) {
    std::vector<nolk::TensorX*> outputs = borrowed(factory->outputs);
    makeRoom(factories_);
    own_.insert(outputs.begin(), outputs.end());
    factories_.push_back(std::move(factory));
    factories_.back()->call = calls_++;
    return outputs;
}

nolk::TensorX* BaseRunnerBuilder::addInputReturn(std::unique_ptr<nolk::TensorX> tensor) {
    makeRoom(inputs_);
    own_.insert(tensor.get());
    inputs_.push_back(std::move(tensor));
    ++calls_;
    return inputs_.back().get();
}

nolk::TensorX* BaseRunnerBuilder::addConstTensorReturn(std::unique_ptr<nolk::TensorX> tensor, FloatBuffer data) {
    makeRoom(constTensors_);
    makeRoom(constData_);
    own_.insert(tensor.get());
    constTensors_.push_back(std::move(tensor));
    constData_.push_back(std::move(data));
    ++calls_;
    return constTensors_.back().get();
}

std::vector<nolk::TensorX*> BaseRunnerBuilder::checkedOutputs(nolk::TensorX** outputs, int count) {
    if (count < 0) refuse("build: output count must not be negative, is %d", count);
    if (count > 0 && !outputs) refuse("build: %d outputs expected, the array is null", count);
    if (tookForeign_) refuse("build: an operation was given a tensor of another builder");
    for (int i = 0; i < count; ++i) {
        if (!outputs[i]) refuse("build: output %d is null: an operation had no input, or an id is unknown", i);
        if (own_.count(outputs[i]) == 0) refuse("build: output %d is a tensor of another builder", i);
    }
    return {outputs, outputs + count};
}

// Must run before fusion, which relies on lengths that are checked here.
void BaseRunnerBuilder::check() const {
    checkExtents(inputs_, "input");
    checkExtents(constTensors_, "constTensor");
    for (const auto& factory : factories_) {
        factory->check();
        checkExtents(factory->outputs, "output of an operation");
    }
}

void BaseRunnerBuilder::fuse() {
    std::vector<std::unique_ptr<LayerFactory>> absorbed = fuseAll(factories_);
    absorbed_.insert(absorbed_.end(), std::make_move_iterator(absorbed.begin()),
                     std::make_move_iterator(absorbed.end()));
}

void BaseRunnerBuilder::connect() {
    for (const auto& factory : factories_) factory->connect();
}

std::vector<std::unique_ptr<Layer>> BaseRunnerBuilder::createLayers() {
    std::vector<std::unique_ptr<Layer>> layers;
    for (const auto& factory : factories_) {
        factory->givenArrays = &givenArrays_;
        layers.push_back(factory->create());
        if (layers.back()) layers.back()->call = factory->call;
    }
    givenArrays_.clear();
    return layers;
}

std::vector<LayerFactory*> BaseRunnerBuilder::borrowedFactories() const {
    std::vector<LayerFactory*> factories;
    for (const auto& factory : factories_) factories.push_back(factory.get());
    return factories;
}
