#include "nolk/model/HostTensor.h"

#include <algorithm>
#include <stdexcept>

#include "inspect/counts.h"

HostTensor::HostTensor(const nolk::TensorShape& tensorShape) : shape(tensorShape) {
    const auto count = static_cast<std::size_t>(elementsOf(shape));
    values.reserve(std::max<std::size_t>(count, 1));
    values.resize(count);
}

std::vector<HostTensor> hostTensors(const std::vector<nolk::TensorShape>& shapes) {
    return {shapes.begin(), shapes.end()};
}

std::vector<nolk::Tensor> views(std::vector<HostTensor>& tensors) {
    std::vector<nolk::Tensor> all;
    all.reserve(std::max<std::size_t>(tensors.size(), 1));  // runners reject a null array, even of no tensors
    for (HostTensor& t : tensors) all.push_back(t.view());
    return all;
}

void runOnce(nolk::Runner& runner, std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs) {
    std::vector<nolk::Tensor> in = views(inputs), out = views(outputs);
    if (!runner.run(in.data(), static_cast<int>(in.size()), out.data(), static_cast<int>(out.size())))
        throw std::runtime_error("the run failed");
}

std::vector<std::int64_t> extentsOf(const nolk::TensorShape& shape) {
    const int n = std::max(shape.n, 0), c = std::max(shape.c, 0);
    if (shape.dims == 1 && shape.h == 1 && shape.w == 1) return {n, c};
    return {n, c, std::max(shape.h, 0), std::max(shape.w, 0)};
}
