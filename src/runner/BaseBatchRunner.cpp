#include "runner/BaseBatchRunner.h"

#include <algorithm>
#include <cstdio>

bool BaseBatchRunner::run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) {
    if (!hasFirstInput(inputs, inputCount)) return false;
    std::vector<QueItem> items = toQueItems(inputs, inputCount, outputs, outputCount);
    std::unique_lock<std::mutex> lock(mutex_, std::defer_lock);
    if (!runner_->isThreadSafe()) lock.lock();
    return std::all_of(items.begin(), items.end(), [&](QueItem& item) {
        return runner_->run(item.inputs.data(), inputCount, outputs ? item.outputs.data() : nullptr, outputCount);
    });
}

void BaseBatchRunner::destroy() {
    runner_->destroy();
    delete this;
}

std::vector<nolk::Tensor> BaseBatchRunner::splitBatch(const nolk::Tensor* tensors, int count, int index) {
    std::vector<nolk::Tensor> views;
    views.reserve(static_cast<std::size_t>(std::max(count, 1)));  // runners reject a null array, even of no tensors
    for (int i = 0; i < count && tensors; ++i) {
        nolk::TensorShape shape = tensors[i].shape;
        const int sampleSize = shape.c * shape.h * shape.w;
        shape.n = 1;
        // A null pointer stays null in every view, so that the inner runner reports it.
        float* const data = tensors[i].data;
        views.push_back({shape, data ? data + static_cast<std::ptrdiff_t>(index) * sampleSize : nullptr});
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

bool BaseBatchRunner::hasFirstInput(const nolk::Tensor* inputs, int inputCount) {
    if (inputs && inputCount > 0) return true;
    std::fputs("a batch needs a first input\n", stderr);
    return false;
}
