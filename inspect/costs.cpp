#include "inspect/costs.h"

#include <algorithm>

#include "inspect/counts.h"
#include "math/quotient.h"
#include "model/operations.h"

namespace {

using Builder = nolk::RunnerBuilder;

std::int64_t multiplyAddsOf(const Call& call, const std::vector<nolk::TensorShape>& inputs,
                            const nolk::TensorShape& out) {
    const nolk::TensorShape in = inputs.empty() ? nolk::TensorShape{} : inputs[0];
    switch (call.operation.code) {
        case kCodeOf<&Builder::convolve>: {
            const auto& w = std::get<nolk::Weights>(call.arguments[3]);
            return productOf({elementsOf(out), w.inChannels, w.kernelH, w.kernelW});
        }
        case kCodeOf<&Builder::deConvolve>: {
            const auto& w = std::get<nolk::Weights>(call.arguments[3]);
            return productOf({elementsOf(in), w.outChannels, w.kernelH, w.kernelW});
        }
        case kCodeOf<&operation::fullConnect>: {
            const auto& w = std::get<SharedWeights>(call.arguments[0]).weights;
            return productOf({in.n, w.groups, w.outChannels, quotient(in.c, w.groups)});
        }
        case kCodeOf<&Builder::matMul>:
            return productOf({elementsOf(in), inputs[1].w});
        // Four gates, each computed from one time step of the input and from the previous output.
        case kCodeOf<&Builder::lstm>: {
            const auto& w = std::get<nolk::LstmWeights>(call.arguments[0]);
            return productOf(
                {in.n, in.c, in.h, w.numDirections, 4, w.hiddenSize, std::int64_t{w.inputSize} + w.hiddenSize});
        }
        default:
            return 0;
    }
}

// The elements read by operations that read more than they write; 0 for others.
std::int64_t elementsReadBy(const Call& call, const nolk::TensorShape& in, const nolk::TensorShape& out) {
    switch (call.operation.code) {
        case kCodeOf<&Builder::maxPool>:
        case kCodeOf<&Builder::avgPool>: {
            const auto kernel = std::get<nolk::DimsHW>(call.arguments[0]);
            return productOf({elementsOf(out), std::min(kernel.h, in.h), std::min(kernel.w, in.w)});
        }
        case kCodeOf<&Builder::reduce>:
            return elementsOf(in);
        default:
            return 0;
    }
}

std::int64_t scratchFloatsOf(const Call& call, const nolk::TensorShape& in, const nolk::TensorShape& out) {
    const bool isConvolution = call.operation.code == kCodeOf<&Builder::convolve>;
    if (!isConvolution && call.operation.code != kCodeOf<&Builder::deConvolve>) return 0;
    const auto& w = std::get<nolk::Weights>(call.arguments[3]);
    return isConvolution ? productOf({out.h, out.w, w.inChannels, w.kernelH, w.kernelW})
                         : productOf({in.h, in.w, w.outChannels, w.kernelH, w.kernelW});
}

// Without vectors of its own the operation gets ones and zeros, which the layer then copies.
std::int64_t madeFloatsOf(const Call& call, const nolk::TensorShape& out) {
    const bool isPlain = call.operation.code == kCodeOf<operation::kInstanceNormalization>;
    return isPlain && elementsOf(out) > 0 ? productOf({4, out.c}) : 0;
}

}  // namespace

void addCosts(LoggedOperation& operation, const Call& call, const std::vector<nolk::TensorShape>& inputs) {
    const nolk::TensorShape in = inputs.empty() ? nolk::TensorShape{} : inputs[0];
    operation.multiplyAdds = multiplyAddsOf(call, inputs, operation.output);
    operation.madeFloats = madeFloatsOf(call, operation.output);
    operation.scratchFloats = scratchFloatsOf(call, in, operation.output);
    operation.steps = sumOf(std::max(operation.multiplyAdds, elementsReadBy(call, in, operation.output)),
                            elementsOf(operation.output));
}
