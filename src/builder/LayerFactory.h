// An operation of a network that is being built. It owns its output tensors, borrows its input tensors, and creates the
// layer in the end. Factories and tensors form the graph: a tensor has one producer, and its consumers in order of
// creation. A factory is constructed when its operation is recorded. build then calls, each for all factories: check,
// fuse, connect, and after memory planning create. A factory that fusion has absorbed is kept as long as the builder,
// because tensors may still list it as a consumer. The constructor of a derived class passes its inputs to this class,
// computes the output's shape and calls initOutputs once.
#pragma once

#include <memory>
#include <vector>

#include "builder/TensorX.h"

class FloatArrays;
class Layer;

class LayerFactory {
public:
    // Adds itself to the consumers of every input. Without inputs it prints "inputs empty" and calls exit(1).
    explicit LayerFactory(const std::vector<nolk::TensorX*>& factoryInputs);
    virtual ~LayerFactory() = default;
    LayerFactory(const LayerFactory&) = delete;
    LayerFactory& operator=(const LayerFactory&) = delete;

    // Creates the layer. By now the planner has set the addresses of its tensors.
    virtual std::unique_ptr<Layer> create() = 0;

    // Gives each output its storage record: the first input's when the operation may work in place, else a new one.
    virtual void connect();

    // Absorbs one neighbour and returns it, so that the builder removes it; null when there is nothing to absorb. A
    // neighbour that absorbs others itself must not be absorbed, see fuseAll.
    virtual LayerFactory* fuse() { return nullptr; }

    // Whether the single output may be written over the first input.
    virtual bool inplaceOp() const { return false; }

    // Throws std::invalid_argument when the layer would access memory outside its tensors or parameters.
    virtual void check() const {}

    // Takes ownership. Prints "outputs empty" if there are none, or "producer not null" if one has a producer already,
    // and calls exit(1).
    void initOutputs(std::vector<std::unique_ptr<nolk::TensorX>> factoryOutputs);

    // True when the operation allows it, and the first input is not a constant and has no other consumer.
    bool canInplace() const;

    // The producer of the only input if that has no other consumer; the consumer of the only output if it has just one.
    LayerFactory* fusiblePrev() const;
    LayerFactory* fusibleNext() const;

    // Updates the graph after this factory has absorbed its predecessor: takes over its input, and its entry among that
    // tensor's consumers.
    void update_pre_comsumer();

    // Updates the graph after this factory has absorbed its successor: the two exchange their outputs.
    void update_next_producer();

    // Returns the only output with its ownership.
    std::unique_ptr<nolk::TensorX> takeOutput();

    // The only input or output. If there is not exactly one, prints "not 1 input" or "not 1 output" and calls exit(1).
    nolk::TensorX* input() const;
    nolk::TensorX* output() const;

    std::vector<nolk::TensorX*> inputs;  // borrowed
    std::vector<std::unique_ptr<nolk::TensorX>> outputs;
    FloatArrays* givenArrays = nullptr;  // borrowed during create: arrays that the layer may take over; may be null
    int call = -1;                       // number of the builder's call that recorded it

protected:
    // Creates a single output of this shape.
    void initOutput(const nolk::TensorShape& shape);
};
