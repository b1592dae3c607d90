// An operation that computes: reads its input tensors, writes its output tensor, both in the runner's arena. Layers
// copy weights and parameters when they are made, or take over arrays that were given away; they never own the memory
// of their tensors. A runner calls run in the order in which layers were built, on one thread at a time. Nothing is
// left to check there, because factories have checked everything.
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

    // scratch is shared by all layers of a runner: grow it to what is needed, use it from its start.
    virtual void run(AlignedMemory<float>& scratch);

    // The first input and the output; empty tensors where there are none.
    virtual nolk::Tensor getInputTensor() const;
    virtual nolk::Tensor getOutputTensor() const;

    // Sets desc to what printf would give, cut to 255 characters.
    Layer* setDesc(const char* format, ...) __attribute__((format(printf, 2, 3)));

    std::string desc;  // "conv", say
    int call = -1;     // of the builder, which has recorded it, see nolk::LayerDescription
};
