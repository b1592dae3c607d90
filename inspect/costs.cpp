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

// The shape of what a slice copies. Its extent at the axis may be larger by one than that of the output.
nolk::TensorShape takenBy(nolk::SlicePos pos, nolk::TensorShape in) {
    int* const extents[] = {&in.n, &in.c, &in.h, &in.w};
    const int axis = pos.axis < 0 ? pos.axis + 4 : pos.axis;
    if (axis < 0 || axis > 3 || pos.step < 1) return {};
    const std::int64_t start = std::max(pos.start, 0), end = std::min(pos.end, *extents[axis]);
    *extents[axis] = start < end ? static_cast<int>((end - start - 1) / pos.step + 1) : 0;
    return in;
}

// The floats of memory that the output needs. A slice copies beyond its output.
std::int64_t storageOf(const Call& call, const nolk::TensorShape& in, const nolk::TensorShape& out) {
    if (call.operation.code != kCodeOf<&Builder::slice>) return elementsOf(out);
    const nolk::TensorShape taken = takenBy(std::get<nolk::SlicePos>(call.arguments[0]), in);
    if (elementsOf(taken) == 0) return elementsOf(out);
    const std::int64_t plane = productOf({out.h, out.w});
    const std::int64_t end = sumOf(sumOf(productOf({taken.n - 1, out.c, plane}), productOf({taken.c - 1, plane})),
                                   sumOf(productOf({taken.h - 1, out.w}), taken.w));
    return std::max(elementsOf(out), end);
}

// The elements that operations read, or write twice, if these can be more than the output has; 0 for others.
std::int64_t elementsReadBy(const Call& call, const std::vector<nolk::TensorShape>& inputs,
                            const nolk::TensorShape& out) {
    const nolk::TensorShape in = inputs.empty() ? nolk::TensorShape{} : inputs[0];
    switch (call.operation.code) {
        case kCodeOf<&operation::concat>: {
            std::int64_t count = productOf({out.n, static_cast<std::int64_t>(inputs.size())});
            for (const nolk::TensorShape& shape : inputs) count = sumOf(count, elementsOf(shape));
            return count;
        }
        case kCodeOf<&Builder::slice>:
            return elementsOf(takenBy(std::get<nolk::SlicePos>(call.arguments[0]), in));
        case kCodeOf<&Builder::resize>:
        case kCodeOf<&operation::resizeAligned>:
            return productOf({in.n, in.c, out.h, out.w});
        case kCodeOf<&Builder::maxPool>:
        case kCodeOf<&Builder::avgPool>: {
            const auto kernel = std::get<nolk::DimsHW>(call.arguments[0]);
            return productOf({elementsOf(out), std::min(kernel.h, in.h), std::min(kernel.w, in.w)});
        }
        case kCodeOf<&Builder::reduce>:
        case kCodeOf<&Builder::reshape>:
        case kCodeOf<&Builder::transpose>:
            return elementsOf(in);
        default:
            return 0;
    }
}

std::int64_t scratchFloatsOf(const Call& call, const nolk::TensorShape& out) {
    if (call.operation.code != kCodeOf<&Builder::convolve>) return 0;
    const auto& w = std::get<nolk::Weights>(call.arguments[3]);
    return productOf({out.h, out.w, w.inChannels, w.kernelH, w.kernelW});
}

}  // namespace

void addCosts(LoggedOperation& operation, const Call& call, const std::vector<nolk::TensorShape>& inputs) {
    const nolk::TensorShape in = inputs.empty() ? nolk::TensorShape{} : inputs[0];
    operation.multiplyAdds = multiplyAddsOf(call, inputs, operation.output);
    operation.storageFloats = storageOf(call, in, operation.output);
    operation.scratchFloats = scratchFloatsOf(call, operation.output);
    operation.steps = sumOf(std::max(operation.multiplyAdds, elementsReadBy(call, inputs, operation.output)),
                            elementsOf(operation.output));
}
