#include "builder/LayerFactory.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

// An inconsistent graph is a bug in the code that recorded it. Building it cannot go on.
[[noreturn]] void fatal(const char* text) {
    std::fputs(text, stderr);
    std::fflush(stderr);
    std::exit(1);
}

}  // namespace

LayerFactory::LayerFactory(const std::vector<nolk::TensorX*>& factoryInputs) : inputs(factoryInputs) {
    if (inputs.empty()) fatal("inputs empty");
    for (nolk::TensorX* t : inputs) t->consumers.push_back(this);
}

void LayerFactory::initOutputs(std::vector<std::unique_ptr<nolk::TensorX>> factoryOutputs) {
    if (factoryOutputs.empty()) fatal("outputs empty");
    for (const auto& t : factoryOutputs) {
        if (t->producer) fatal("producer not null");
        t->producer = this;
    }
    outputs = std::move(factoryOutputs);
}

void LayerFactory::initOutput(const nolk::TensorShape& shape) {
    std::vector<std::unique_ptr<nolk::TensorX>> one;
    one.push_back(std::make_unique<nolk::TensorX>(shape, false));
    initOutputs(std::move(one));
}

void LayerFactory::connect() {
    if (canInplace()) {
        output()->setRawTensor(inputs.front()->rawTensor);
        return;
    }
    for (const auto& t : outputs) t->setRawTensor(std::make_shared<RawTensor>());
}

bool LayerFactory::canInplace() const {
    return inplaceOp() && !inputs.front()->isConst && inputs.front()->consumers.size() == 1;
}

LayerFactory* LayerFactory::fusiblePrev() const {
    return inputs.size() == 1 && inputs.front()->consumers.size() == 1 ? inputs.front()->producer : nullptr;
}

LayerFactory* LayerFactory::fusibleNext() const {
    return outputs.size() == 1 && outputs.front()->consumers.size() == 1 ? outputs.front()->consumers.front() : nullptr;
}

void LayerFactory::update_pre_comsumer() {
    inputs.front() = fusiblePrev()->inputs.front();
    // If the tensor has several consumers, the first may be another factory. Losing its entry does no harm: fusion
    // reads the entry of a tensor with a single consumer only, and otherwise just counts the entries.
    inputs.front()->consumers.front() = this;
}

void LayerFactory::update_next_producer() {
    LayerFactory* next = fusibleNext();
    std::unique_ptr<nolk::TensorX> taken = next->takeOutput();
    taken->producer = this;
    // The absorbed factory keeps the tensor between the two alive, because the host may still use its pointer.
    next->outputs.push_back(std::move(outputs.front()));
    outputs.front() = std::move(taken);
}

std::unique_ptr<nolk::TensorX> LayerFactory::takeOutput() {
    output();
    std::unique_ptr<nolk::TensorX> taken = std::move(outputs.front());
    outputs.clear();
    return taken;
}

nolk::TensorX* LayerFactory::input() const {
    if (inputs.size() != 1) fatal("not 1 input");
    return inputs.front();
}

nolk::TensorX* LayerFactory::output() const {
    if (outputs.size() != 1) fatal("not 1 output");
    return outputs.front().get();
}
