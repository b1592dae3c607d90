#include "inspect/limits.h"

#include <algorithm>

#include "inspect/counts.h"
#include "inspect/format.h"
#include "model/operations.h"

namespace {

// The largest number of floats in tensors that exist at the same time. A tensor exists from its operation to its last
// use, a network output to the end.
std::int64_t liveFloats(const std::vector<LoggedOperation>& operations, const std::vector<int>& outputs) {
    std::vector<std::size_t> lastUse(operations.size(), operations.size());  // an unused tensor stays to the end
    for (std::size_t user = 0; user < operations.size(); ++user)
        for (const int place : operations[user].inputs)
            if (place >= 0) lastUse[static_cast<std::size_t>(place)] = user;
    for (const int place : outputs)
        if (place >= 0) lastUse[static_cast<std::size_t>(place)] = operations.size();
    std::vector<std::vector<std::size_t>> freed(operations.size() + 1);
    for (std::size_t i = 0; i < operations.size(); ++i) freed[lastUse[i]].push_back(i);
    std::int64_t live = 0, most = 0;
    constexpr std::int64_t kLargeEnough = std::int64_t{1} << 60;  // stop here, before sums saturate
    for (std::size_t i = 0; i < operations.size() && most < kLargeEnough; ++i) {
        live = sumOf(live, operations[i].storageFloats);
        most = std::max(most, live);
        for (const std::size_t gone : freed[i]) live -= operations[gone].storageFloats;
    }
    return most;
}

// Products of weights with the batch normalisations that build may fold into them, before and behind each convolution.
// Each output channel, which gets a bias, counts as one too.
std::int64_t foldingSteps(const std::vector<LoggedOperation>& operations) {
    constexpr int kConvolve = kCodeOf<&nolk::RunnerBuilder::convolve>, kPad = kCodeOf<&nolk::RunnerBuilder::pad>;
    constexpr int kNormalize = kCodeOf<&nolk::RunnerBuilder::batchNormalize>;
    // Of the chain that ends with each operation: its normalisations, and the weights of the convolution it began with.
    std::vector<std::int64_t> normalizations(operations.size(), 0), weights(operations.size(), 0);
    std::int64_t steps = 0;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const LoggedOperation& operation = operations[i];
        const int code = operation.operation ? operation.operation->code : -1;
        const int input = operation.inputs.empty() ? -1 : operation.inputs.front();
        if (code == kConvolve) weights[i] = sumOf(operation.parameterCount, std::max(operation.output.c, 0));
        if (input < 0 || (code != kConvolve && code != kPad && code != kNormalize)) continue;
        const auto before = static_cast<std::size_t>(input);
        if (code == kConvolve) {
            steps = sumOf(steps, productOf({weights[i], normalizations[before]}));
            continue;
        }
        normalizations[i] = normalizations[before] + (code == kNormalize ? 1 : 0);
        weights[i] = weights[before];
        if (code == kNormalize) steps = sumOf(steps, weights[i]);
    }
    return steps;
}

std::int64_t bytesOf(std::int64_t floats) { return productOf({floats, sizeof(float)}); }

}  // namespace

std::int64_t nolk::ModelCost::memoryBytes() const { return sumOf(sumOf(tensorBytes, weightBytes), scratchBytes); }

nolk::ModelCost costOf(const std::vector<LoggedOperation>& operations, const std::vector<int>& outputs) {
    std::int64_t weights = 0, scratch = 0;
    nolk::ModelCost cost;
    for (const LoggedOperation& operation : operations) {
        weights = sumOf(weights, operation.parameterCount);
        scratch = std::max(scratch, operation.scratchFloats);
        cost.multiplyAdds = sumOf(cost.multiplyAdds, operation.multiplyAdds);
        cost.steps = sumOf(cost.steps, operation.steps);
    }
    cost.steps = sumOf(cost.steps, foldingSteps(operations));
    // Each output is copied to the caller.
    for (const int place : outputs)
        if (place >= 0) cost.steps = sumOf(cost.steps, elementsOf(operations[static_cast<std::size_t>(place)].output));
    cost.tensorBytes = bytesOf(liveFloats(operations, outputs));
    cost.weightBytes = bytesOf(weights);
    cost.scratchBytes = bytesOf(scratch);
    return cost;
}

nolk::ModelCost buildingCostOf(nolk::ModelCost cost, const std::vector<LoggedOperation>& operations) {
    cost.steps = foldingSteps(operations);
    return cost;
}

std::string refusal(const nolk::ModelCost& cost, const nolk::ModelLimits& limits, const char* purpose) {
    std::string text;
    if (cost.memoryBytes() > limits.memoryBytes)
        text = "it needs " + bytesText(cost.memoryBytes()) + " of memory (tensors " + grouped(cost.tensorBytes) +
               ", weights " + grouped(cost.weightBytes) + ", scratch " + grouped(cost.scratchBytes) +
               "), the limit is " + bytesText(limits.memoryBytes);
    if (cost.steps > limits.multiplyAdds)
        text += (text.empty() ? "it" : "; it") + std::string(" needs ") + grouped(cost.steps) +
                " multiply-adds and other steps " + purpose + ", the limit is " + grouped(limits.multiplyAdds);
    return text;
}
