// Plans one arena for all tensors of a network by going through the layers once, as a run would. A tensor takes its
// range when its layer is reached, and gives it back when all layers that read it have been passed.
//   TensorSpace space(16);  std::unique_ptr<MemoryPool> arena = space.mallocAll(factories, inputs, outputs);
// A layer's output never overlaps its own inputs, unless both share a RawTensor by design; outputs of the network are
// never given back. Placement is greedy, first fit, in execution order. Addresses are set at the very end.
#pragma once

#include <map>
#include <memory>
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

    // Places every tensor and returns the pool they lie in; null when there was nothing to place. layers stand in
    // execution order.
    std::unique_ptr<MemoryPool> mallocAll(const std::vector<LayerFactory*>& layers,
                                          const std::vector<nolk::TensorX*>& inputs,
                                          const std::vector<nolk::TensorX*>& outputs);

    // Gives t a range if it has none.
    void mallocIfNeeded(RawTensor* t);

    // Gives t's range back; a record without one (a constant) is entered with an empty range.
    void free(RawTensor* t);

    // Sets t's data to its place in the pool, and returns it; null without a pool.
    float* locate(RawTensor* t);

    // The pool, which this space then forgets.
    std::unique_ptr<MemoryPool> handOverRealSpace();

    MemoryPool* ensurePool();

    // Capacity of the pool in floats.
    int size() const { return pool_ ? pool_->size() : 0; }

private:
    int alignment_;
    std::unique_ptr<MemoryPool> pool_;
    std::map<RawTensor*, MemoryPoolMem> tensorMems_;
};
