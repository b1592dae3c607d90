// A builder that builds nothing but logs each call, inputs and constants included, with its shape, cost and
// diagnostics.
//   OperationLog log;  reader.readFromMemory(&log, 1, bytes, size);  log.operations()[1].multiplyAdds
// Accepts any call: null tensors, extents that cannot be, arrays that are null. Arrays are only read, and only during
// the call. Tensors are its own and mean nothing to another builder.
#pragma once

#include <memory>
#include <vector>

#include "inspect/CallBuilder.h"
#include "inspect/LoggedOperation.h"

class OperationLog final : public CallBuilder<nolk::RunnerBuilder> {
public:
    const std::vector<LoggedOperation>& operations() const { return operations_; }

    // The place of what made x among the operations; -1 for null.
    int placeOf(const nolk::TensorX* x) const { return x ? reinterpret_cast<const Tensor*>(x)->place : -1; }

    nolk::TensorShape shapeOf(nolk::TensorX* x) override;
    nolk::Runner* build(nolk::TensorX**, int) override { return nullptr; }  // there is no runner
    void destroy() override { delete this; }                                // for a builder made with new

private:
    // What the builder hands out as a TensorX, which is opaque.
    struct Tensor {
        int place;
    };

    nolk::TensorX* record(const Call& call) override;

    std::vector<LoggedOperation> operations_;
    std::vector<std::unique_ptr<Tensor>> tensors_;
};
