#include "runner/BaseBatchRunner.h"

#include <algorithm>
#include <cstdio>

namespace {

bool hasSamples(const nolk::Tensor* tensors, int count, int samples, const char* what) {
    if (count > 0 && !tensors) {
        std::fprintf(stderr, "%s is null\n", what);
        return false;
    }
    for (int i = 0; i < count; ++i) {
        if (tensors[i].shape.n < samples) {
            std::fprintf(stderr, "%s[%d] has %d samples, %d expected\n", what, i, tensors[i].shape.n, samples);
            return false;
        }
        if (!tensors[i].data) {
            std::fprintf(stderr, "%s[%d] has no data\n", what, i);
            return false;
        }
    }
    return true;
}

}  // namespace

bool BaseBatchRunner::run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) {
    if (!canSplit(inputs, inputCount, outputs, outputCount)) return false;
    std::vector<QueItem> items = toQueItems(inputs, inputCount, outputs, outputCount);
    std::unique_lock<std::mutex> lock(mutex_, std::defer_lock);
    if (!runner_->isThreadSafe()) lock.lock();
    return std::all_of(items.begin(), items.end(), [this, inputCount, outputCount](QueItem& item) {
        return runner_->run(item.inputs.data(), inputCount, item.outputs.data(), outputCount);
    });
}

void BaseBatchRunner::destroy() {
    runner_->destroy();
    delete this;
}

std::vector<nolk::Tensor> BaseBatchRunner::splitBatch(const nolk::Tensor* tensors, int count, int index) {
    std::vector<nolk::Tensor> views;
    views.reserve(static_cast<std::size_t>(std::max(count, 1)));  // runners refuse null, also for no tensors
    for (int i = 0; i < count; ++i) {
        nolk::TensorShape shape = tensors[i].shape;
        const int sampleSize = shape.c * shape.h * shape.w;
        shape.n = 1;
        views.push_back({shape, tensors[i].data + static_cast<std::ptrdiff_t>(index) * sampleSize});
    }
    return views;
}

std::vector<QueItem> BaseBatchRunner::toQueItems(const nolk::Tensor* inputs, int inputCount,
                                                 const nolk::Tensor* outputs, int outputCount) {
    std::vector<QueItem> items(static_cast<std::size_t>(std::max(inputs[0].shape.n, 0)));
    for (int i = 0; i < static_cast<int>(items.size()); ++i) {
        QueItem& item = items[static_cast<std::size_t>(i)];
        item.inputs = splitBatch(inputs, inputCount, i);
        item.outputs = splitBatch(outputs, outputCount, i);
    }
    return items;
}

bool BaseBatchRunner::canSplit(const nolk::Tensor* inputs, int inputCount, const nolk::Tensor* outputs,
                               int outputCount) {
    if (inputCount < 1 || !inputs) {
        std::fputs("a batch needs a first input\n", stderr);
        return false;
    }
    const int samples = inputs[0].shape.n;
    if (samples < 1) return true;
    return hasSamples(inputs, inputCount, samples, "inputs") && hasSamples(outputs, outputCount, samples, "outputs");
}
