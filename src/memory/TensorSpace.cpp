#include "memory/TensorSpace.h"

#include <utility>

#include "builder/LayerFactory.h"

std::unique_ptr<MemoryPool> TensorSpace::mallocAll(const std::vector<LayerFactory*>& layers,
                                                   const std::vector<nolk::TensorX*>& inputs,
                                                   const std::vector<nolk::TensorX*>& outputs) {
    std::map<RawTensor*, int> uses;
    for (const LayerFactory* layer : layers)
        for (const nolk::TensorX* t : layer->inputs) ++uses[t->rawTensor.get()];
    // One more use, which is never subtracted, keeps an output's range to the end.
    for (const nolk::TensorX* t : outputs) ++uses[t->rawTensor.get()];

    for (const nolk::TensorX* t : inputs) mallocIfNeeded(t->rawTensor.get());
    for (const LayerFactory* layer : layers) {
        for (const auto& t : layer->outputs) mallocIfNeeded(t->rawTensor.get());
        for (const nolk::TensorX* t : layer->inputs)
            if (--uses[t->rawTensor.get()] == 0) free(t->rawTensor.get());
    }

    for (const nolk::TensorX* t : inputs) locate(t->rawTensor.get());
    for (const LayerFactory* layer : layers)
        for (const auto& t : layer->outputs) locate(t->rawTensor.get());
    return handOverRealSpace();
}

void TensorSpace::mallocIfNeeded(RawTensor* t) {
    if (tensorMems_.count(t) == 0) tensorMems_[t] = ensurePool()->malloc(t->size);
}

void TensorSpace::free(RawTensor* t) { ensurePool()->free(tensorMems_[t]); }

float* TensorSpace::locate(RawTensor* t) {
#ifdef NOLK_SEPARATE_TENSORS
    if (pool_ && placed_.insert(t).second) t->data = pool_->ownBlock(t->size);
    if (pool_) return t->data;
#endif
    const int offset = tensorMems_[t].offset;
    t->data = pool_ ? pool_->locate(offset) : nullptr;
    return t->data;
}

std::unique_ptr<MemoryPool> TensorSpace::handOverRealSpace() { return std::move(pool_); }

MemoryPool* TensorSpace::ensurePool() {
    if (!pool_) pool_ = std::make_unique<MemoryPool>(alignment_);
    return pool_.get();
}
