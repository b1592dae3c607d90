#include "fuzz/runTwice.h"

#include <cmath>
#include <cstddef>
#include <iterator>
#include <memory>

#include "inspect/counts.h"

namespace {

struct HostTensors {
    explicit HostTensors(const std::vector<nolk::TensorShape>& shapes) {
        constexpr float kValues[] = {0.5f, -1.25f, 3.0f, -0.0f, INFINITY, 0.0f, -2.0f, NAN, 1e38f, 7.0f, -INFINITY};
        for (const nolk::TensorShape& shape : shapes) {
            const auto count = static_cast<std::size_t>(elementsOf(shape));
            storage.push_back(std::make_unique<float[]>(count));
            for (std::size_t i = 0; i < count; ++i) storage.back()[i] = kValues[i % std::size(kValues)];
            tensors.push_back({shape, storage.back().get()});
        }
        tensors.reserve(tensors.size() + 1);  // a runner rejects a null array, even of no tensors
    }

    std::vector<nolk::Tensor> tensors;
    std::vector<std::unique_ptr<float[]>> storage;
};

}  // namespace

bool runTwice(nolk::Runner& runner, const std::vector<nolk::TensorShape>& inputs,
              const std::vector<nolk::TensorShape>& outputs) {
    HostTensors in(inputs), out(outputs);
    for (int i = 0; i < 2; ++i)
        if (!runner.run(in.tensors.data(), static_cast<int>(in.tensors.size()), out.tensors.data(),
                        static_cast<int>(out.tensors.size())))
            return false;
    return true;
}
