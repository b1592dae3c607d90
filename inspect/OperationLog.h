// A builder that builds nothing. It logs each call, also of inputs and constants, with shape, cost and diagnostics.
//   OperationLog log;  reader.readFromMemory(&log, 1, bytes, size);  log.operations()[1].multiplyAdds
// Accepts any call: null tensors, impossible extents, null arrays. Arrays are only read, and only during the call. No
// other builder can use its tensors.
#pragma once

#include <memory>
#include <vector>

#include "inspect/CallBuilder.h"
#include "inspect/LoggedOperation.h"

class OperationLog final : public CallBuilder<nolk::RunnerBuilder> {
public:
    const std::vector<LoggedOperation>& operations() const { return operations_; }

    // The index of the operation that made x; -1 for null.
    int placeOf(const nolk::TensorX* x) const { return x ? reinterpret_cast<const Tensor*>(x)->place : -1; }

    nolk::TensorShape shapeOf(nolk::TensorX* x) override;
    nolk::Runner* build(nolk::TensorX**, int) override { return nullptr; }  // there is no runner
    void destroy() override { delete this; }                                // for a builder made with new

private:
    // The builder returns pointers to this as TensorX, which is opaque to hosts.
    struct Tensor {
        int place;
    };

    nolk::TensorX* record(const Call& call) override;

    std::vector<LoggedOperation> operations_;
    std::vector<std::unique_ptr<Tensor>> tensors_;
};
