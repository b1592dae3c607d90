// Floats of the program's own in the shape of a network's input or output, and one run with such tensors.
//   auto inputs = hostTensors(network.inputs), outputs = hostTensors(network.outputs);
//   runOnce(*network.runner, inputs, outputs);
#pragma once

#include <nolk.h>

#include <cstdint>
#include <vector>

struct HostTensor {
    explicit HostTensor(const nolk::TensorShape& tensorShape);

    nolk::Tensor view() { return {shape, values.data()}; }  // its address is never null, also for no elements

    nolk::TensorShape shape;
    std::vector<float> values;  // zeros at first
};

std::vector<HostTensor> hostTensors(const std::vector<nolk::TensorShape>& shapes);

// For a runner; valid as long as the tensors stay where they are. The array is never null.
std::vector<nolk::Tensor> views(std::vector<HostTensor>& tensors);

// Throws std::runtime_error when the run fails; the library has then told on standard error why.
void runOnce(nolk::Runner& runner, std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs);

// The extents that mean something: [n, c] of a matrix, else [n, c, h, w]. Those below 0 count as 0.
std::vector<std::int64_t> extentsOf(const nolk::TensorShape& shape);
