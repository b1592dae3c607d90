#include "fuzz/HostRun.h"

#include <nolk_layers.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "fuzz/target.h"
#include "inspect/counts.h"
#include "memory/MemoryPool.h"

namespace {

bool areSame(const nolk::Tensor& a, const nolk::Tensor& b) {
    for (std::size_t i = 0, count = countOf(a); i < count; ++i) {
        if (std::isnan(a.data[i]) && std::isnan(b.data[i])) continue;
        if (std::memcmp(a.data + i, b.data + i, sizeof(float)) != 0) return false;
    }
    return true;
}

}  // namespace

HostRun::Tensors::Tensors(const std::vector<nolk::TensorShape>& shapes) {
    for (const nolk::TensorShape& shape : shapes) {
        storage.push_back(std::make_unique<float[]>(static_cast<std::size_t>(elementsOf(shape))));
        tensors.push_back({shape, storage.back().get()});
    }
    tensors.reserve(tensors.size() + 1);  // a runner rejects a null array, even of no tensors
}

HostRun::HostRun(const std::vector<nolk::TensorShape>& inputs, const std::vector<nolk::TensorShape>& outputs)
    : inputs_(inputs), outputs_(outputs) {}

void HostRun::fill(float (*value)(std::size_t i), float before) {
    for (const nolk::Tensor& tensor : inputs_.tensors)
        for (std::size_t i = 0, count = countOf(tensor); i < count; ++i) tensor.data[i] = value(i);
    for (const nolk::Tensor& tensor : outputs_.tensors) std::fill_n(tensor.data, countOf(tensor), before);
}

bool HostRun::run(nolk::Runner& runner) {
    return runner.run(inputs_.tensors.data(), static_cast<int>(inputs_.tensors.size()), outputs_.tensors.data(),
                      static_cast<int>(outputs_.tensors.size()));
}

bool HostRun::runTimed(nolk::Runner& runner) {
    nolk::LayeredRunner* const layered = nolk::layeredRunnerOf(&runner);
    if (!layered) return run(runner);
    const int layers = layered->layerCount();
    for (int i = 0; i < layers; ++i) expect(layered->layer(i).kind != nullptr, "a layer has a kind");
    std::vector<std::int64_t> times(static_cast<std::size_t>(layers) + 2);
    const bool ok = layered->runTimed(inputs_.tensors.data(), static_cast<int>(inputs_.tensors.size()),
                                      outputs_.tensors.data(), static_cast<int>(outputs_.tensors.size()), times.data());
    expect(std::is_sorted(times.begin(), times.end()), "layers run one after the other");
    return ok;
}

bool HostRun::isHeldToShapes(nolk::Runner& runner) {
    const auto inputs = static_cast<int>(inputs_.tensors.size()), outputs = static_cast<int>(outputs_.tensors.size());
    const auto isRejected = [&](nolk::Tensor* in, int inputCount) {
        return !runner.run(in, inputCount, outputs_.tensors.data(), outputs);
    };
    if (!isRejected(nullptr, inputs) || !isRejected(inputs_.tensors.data(), inputs + 1)) return false;
    if (inputs == 0) return true;
    std::vector<nolk::Tensor> changed = inputs_.tensors;
    changed.back().shape.h ^= 1;
    const bool rejectsShapes = isRejected(changed.data(), inputs);
    changed.back().shape.h ^= 1;
    changed.back().data = nullptr;
    return rejectsShapes && isRejected(changed.data(), inputs);
}

float hostileValues(std::size_t i) {
    constexpr float kValues[] = {0.5f, -1.25f, 3.0f, -0.0f, INFINITY, 0.0f, -2.0f, NAN, 1e38f, 7.0f, -INFINITY};
    return kValues[i % std::size(kValues)];
}

float notNumbers(std::size_t) { return NAN; }

float tameValues(std::size_t i) { return static_cast<float>(static_cast<int>(i * 37 % 101) - 50) / 32.0f; }

std::size_t countOf(const nolk::Tensor& tensor) { return static_cast<std::size_t>(elementsOf(tensor.shape)); }

bool areSame(const std::vector<nolk::Tensor>& a, const std::vector<nolk::Tensor>& b) {
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!areSame(a[i], b[i])) return false;
    return true;
}

void setFirstValue([[maybe_unused]] float value) {
#ifdef NOLK_SEPARATE_TENSORS
    MemoryPool::firstValue = value;
#endif
}

bool runTwice(nolk::Runner& runner, const std::vector<nolk::TensorShape>& inputs,
              const std::vector<nolk::TensorShape>& outputs) {
    HostRun host(inputs, outputs);
    host.fill(hostileValues);
    return host.run(runner) && host.runTimed(runner);
}
