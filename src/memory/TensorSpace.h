// Plans one arena for all tensors of a network by going through the layers once, in execution order. A tensor gets its
// range at the layer that writes it, and loses it after the last layer that reads it.
//   TensorSpace space(16);  std::unique_ptr<MemoryPool> arena = space.mallocAll(factories, inputs, outputs);
// A layer's output never overlaps its own inputs, unless both share a RawTensor by design; outputs of the network are
// never freed. Placement is greedy, first fit, in execution order. Addresses are set at the very end.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <vector>

#include "memory/MemoryPool.h"
#include "memory/RawTensor.h"

class LayerFactory;
namespace nolk {
class TensorX;
}

class TensorSpace {
public:
    // alignment in floats, of every range.
    explicit TensorSpace(int alignment) : alignment_(alignment) {}

    // Places every tensor and returns the pool that holds them; null when no tensor needs memory. layers must be in
    // execution order.
    std::unique_ptr<MemoryPool> mallocAll(const std::vector<LayerFactory*>& layers,
                                          const std::vector<nolk::TensorX*>& inputs,
                                          const std::vector<nolk::TensorX*>& outputs);

    // Gives t a range if it has none.
    void mallocIfNeeded(RawTensor* t);

    // Frees t's range. A record without one (a constant) gets an empty range.
    void free(RawTensor* t);

    // Sets t's data to its address in the pool and returns it; null without a pool.
    float* locate(RawTensor* t);

    // Returns the pool with its ownership.
    std::unique_ptr<MemoryPool> handOverRealSpace();

    MemoryPool* ensurePool();

    // Capacity of the pool in floats.
    int size() const { return pool_ ? pool_->size() : 0; }

private:
    int alignment_;
    std::unique_ptr<MemoryPool> pool_;
    std::map<RawTensor*, MemoryPoolMem> tensorMems_;
#ifdef NOLK_SEPARATE_TENSORS
    std::set<RawTensor*> placed_;  // those that have a block
#endif
};
