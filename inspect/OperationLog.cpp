#include "inspect/OperationLog.h"

#include <algorithm>
#include <utility>

#include "inspect/arguments.h"
#include "inspect/costs.h"
#include "inspect/diagnostics.h"
#include "inspect/outputShape.h"

nolk::TensorShape OperationLog::shapeOf(nolk::TensorX* x) {
    const int place = placeOf(x);
    return place < 0 ? nolk::TensorShape{0, 0, 0, 0, 0} : operations_[static_cast<std::size_t>(place)].output;
}

nolk::TensorX* OperationLog::record(const Call& call) {
    LoggedOperation operation;
    operation.operation = &call.operation;
    operation.details = detailsOf(call);
    operation.parameters = parametersOf(call);
    operation.parameterCount = floatCountOf(call);
    std::vector<nolk::TensorShape> shapes;
    for (nolk::TensorX* x : call.inputs) {
        operation.inputs.push_back(placeOf(x));
        shapes.push_back(shapeOf(x));
    }
    const auto isMissing = [](int place) { return place < 0; };
    const bool hasNoInputs = call.operation.inputCount == kListOfInputs && call.inputs.empty();
    operation.isMade = !hasNoInputs && std::none_of(operation.inputs.begin(), operation.inputs.end(), isMissing);
    if (hasNoInputs) operation.diagnostics.push_back({true, "joins nothing, which ends the process"});
    // If an input is missing, output, cost and diagnostics are unknown, because they follow from the inputs' shapes.
    if (operation.isMade) {
        operation.output = outputShape(call, shapes);
        operation.isView = isView(call);
        addCosts(operation, call, shapes);
        addDiagnostics(operation, call, shapes);
    }
    operations_.push_back(std::move(operation));
    if (!operations_.back().isMade) return nullptr;
    tensors_.push_back(std::make_unique<Tensor>(Tensor{static_cast<int>(operations_.size()) - 1}));
    return reinterpret_cast<nolk::TensorX*>(tensors_.back().get());
}
