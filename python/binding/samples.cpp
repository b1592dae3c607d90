#include "samples.h"

#include <algorithm>
#include <cstdint>

#include "model/operations.h"

namespace {

using Builder = nolk::RunnerBuilder;
using Shape = nolk::TensorShape;

std::int64_t sampleSize(const Shape& s) { return std::int64_t{s.c} * s.h * s.w; }

// Whether every extent of a sample is 1 or that of the other sample.
bool isReductionOf(const Shape& part, const Shape& whole) {
    return (part.c == 1 || part.c == whole.c) && (part.h == 1 || part.h == whole.h) &&
           (part.w == 1 || part.w == whole.w);
}

double valueOf(const nolk::ModelOperation& operation, const char* name, std::size_t place) {
    for (const nolk::ModelParameter& parameter : operation.parameters)
        if (parameter.name == name && place < parameter.values.size()) return parameter.values[place];
    return 0;
}

// For operations whose tensors all have the batch's samples. Some read or write across the bounds of a sample when the
// extents do not fit.
bool mixes(const nolk::ModelOperation& operation, const std::vector<Shape>& inputs) {
    const Shape& out = operation.output;
    if (inputs.empty()) return false;
    const Shape& in = inputs[0];
    switch (operation.code) {
        case kCodeOf<&Builder::transpose>:
            return valueOf(operation, "axes", 0) != 0;
        case kCodeOf<&operation::prelu>:
            return true;  // the index of the slope counts through the whole batch
        case kCodeOf<&Builder::reshape>:
            return sampleSize(out) != sampleSize(in);
        case kCodeOf<&Builder::resize>:
        case kCodeOf<&operation::resizeAligned>:
            return out.c != in.c;
        case kCodeOf<&Builder::reduce>:
            return !isReductionOf(out, in);
        case kCodeOf<&operation::fullConnect>: {
            const int groups = static_cast<int>(valueOf(operation, "weights", 0));
            return in.h != 1 || in.w != 1 || groups < 1 || in.c % groups != 0;
        }
        case kCodeOf<&Builder::matMul>:
            return inputs.size() < 2 || inputs[1].c < in.c || inputs[1].h < in.w;
        case kCodeOf<&Builder::lstm>:
            return in.c != 1 || in.w != static_cast<int>(valueOf(operation, "inputSize", 0));
        default:
            return false;
    }
}

}  // namespace

bool mixesSamples(const nolk::ModelInfo& info, int batch) {
    const auto hasBatch = [&](int place) { return info.operations[static_cast<std::size_t>(place)].output.n == batch; };
    if (info.inputs.empty() || !std::all_of(info.inputs.begin(), info.inputs.end(), hasBatch) ||
        !std::all_of(info.outputs.begin(), info.outputs.end(), hasBatch))
        return true;
    if (batch == 1) return false;
    return std::any_of(info.operations.begin(), info.operations.end(), [&](const nolk::ModelOperation& operation) {
        if (!operation.isMade) return false;  // loading reports it
        if (operation.output.n != batch) return true;
        std::vector<Shape> inputs;
        for (const int place : operation.inputs)
            if (place >= 0) inputs.push_back(info.operations[static_cast<std::size_t>(place)].output);
        return mixes(operation, inputs);
    });
}
