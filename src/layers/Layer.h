// An operation that computes: reads its input tensors, writes its output tensor, both in the runner's arena. Layers
// copy weights and parameters when they are created, or take over arrays that were handed over; they never own the
// memory of their tensors. A runner calls run in the order in which layers were built, on one thread at a time. run
// checks nothing, because factories have checked everything.
#pragma once

#include <nolk.h>

#include <string>

#include "memory/AlignedMemory.h"

class Layer {
public:
    Layer() = default;
    virtual ~Layer() = default;
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    // All layers of a runner share scratch: a layer first grows it to the required size, and may use all of it.
    virtual void run(AlignedMemory<float>& scratch);

    // The first input and the output; empty tensors where there are none.
    virtual nolk::Tensor getInputTensor() const;
    virtual nolk::Tensor getOutputTensor() const;

    // Sets desc to what printf would give, cut to 255 characters.
    Layer* setDesc(const char* format, ...) __attribute__((format(printf, 2, 3)));

    std::string desc;  // for example "conv"
    int call = -1;     // number of the builder's call that recorded it, see nolk::LayerDescription
};
