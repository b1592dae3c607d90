// An operation of a network that is being built: refers to the tensors that it reads, owns those that it makes, and
// creates the layer in the end. With the tensors it forms the graph: a tensor has one producer and its consumers in
// order of creation. The builder calls, over all factories: the constructor as operations are recorded, then check,
// fuse, connect, and after memory planning create. A factory that fusion has absorbed lives on until the builder goes,
// because tensors may still name it as a consumer. A derived constructor hands its inputs up, computes the output's
// shape and calls initOutputs once.
#pragma once

#include <memory>
#include <vector>

#include "builder/TensorX.h"

class FloatArrays;
class Layer;

class LayerFactory {
public:
    // Enters itself in the consumers of every input. No inputs: "inputs empty" and exit(1).
    explicit LayerFactory(const std::vector<nolk::TensorX*>& factoryInputs);
    virtual ~LayerFactory() = default;
    LayerFactory(const LayerFactory&) = delete;
    LayerFactory& operator=(const LayerFactory&) = delete;

    // The layer; its tensors are where the planner put them.
    virtual std::unique_ptr<Layer> create() = 0;

    // Gives each output its storage record: the first input's when the operation may work in place, else a new one.
    virtual void connect();

    // Absorbs one neighbour and returns it, to be taken out of the network; null when there is nothing to absorb.
    virtual LayerFactory* fuse() { return nullptr; }

    // Whether the single output may be written over the first input.
    virtual bool inplaceOp() const { return false; }

    // Throws std::invalid_argument when the layer would leave its tensors or parameters.
    virtual void check() const {}

    // Takes ownership. None: "outputs empty"; one that has a producer: "producer not null"; exit(1).
    void initOutputs(std::vector<std::unique_ptr<nolk::TensorX>> factoryOutputs);

    // True when the operation allows it and nobody else needs the first input, a constant least of all.
    bool canInplace() const;

    // The producer of the only input if nobody else reads that; the consumer of the only output if there is one alone.
    LayerFactory* fusiblePrev() const;
    LayerFactory* fusibleNext() const;

    // Relinks after absorbing the factory before: takes over its input, and its place among that tensor's consumers.
    void update_pre_comsumer();

    // Relinks after absorbing the factory behind: takes over its output, and leaves it the own one.
    void update_next_producer();

    // Gives the only output away.
    std::unique_ptr<nolk::TensorX> takeOutput();

    // The only input or output; "not 1 input", "not 1 output" and exit(1) where there is not exactly one.
    nolk::TensorX* input() const;
    nolk::TensorX* output() const;

    std::vector<nolk::TensorX*> inputs;  // borrowed
    std::vector<std::unique_ptr<nolk::TensorX>> outputs;
    FloatArrays* givenArrays = nullptr;  // borrowed for create: weights that the layer may take over, if any
    int call = -1;                       // of the builder, which has recorded it

protected:
    // One output of this shape.
    void initOutput(const nolk::TensorShape& shape);
};
