// A tensor that owns its floats, for a network's input or output, and functions to run a network with such tensors.
//   auto inputs = hostTensors(network.inputs), outputs = hostTensors(network.outputs);
//   runOnce(*network.runner, inputs, outputs);
#pragma once

#include <nolk.h>

#include <cstdint>
#include <vector>

struct HostTensor {
    explicit HostTensor(const nolk::TensorShape& tensorShape);

    nolk::Tensor view() { return {shape, values.data()}; }  // data is never null, even without elements

    nolk::TensorShape shape;
    std::vector<float> values;  // zeros at first
};

std::vector<HostTensor> hostTensors(const std::vector<nolk::TensorShape>& shapes);

// Tensors for Runner::run, valid as long as the tensors are not moved. The array is never null.
std::vector<nolk::Tensor> views(std::vector<HostTensor>& tensors);

// Throws std::runtime_error when the run fails; the library has then printed the reason to standard error.
void runOnce(nolk::Runner& runner, std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs);

// The extents: [n, c] for a matrix, else [n, c, h, w]. Negative ones count as 0.
std::vector<std::int64_t> extentsOf(const nolk::TensorShape& shape);
