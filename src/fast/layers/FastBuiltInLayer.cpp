#include "fast/layers/FastBuiltInLayer.h"

std::unique_ptr<Layer> FastBuiltInLayer::make(const FastArena& arena) const {
    const auto tensorOf = [&](const FastView& view) {
        float* const data = view.constant ? const_cast<float*>(view.constant) : arena.floats.data() + view.offset;
        return nolk::Tensor{view.shape, data};
    };
    std::vector<nolk::Tensor> inputs;
    for (const FastView& view : inputs_) inputs.push_back(tensorOf(view));
    return op_.make(inputs, tensorOf(output_));
}
