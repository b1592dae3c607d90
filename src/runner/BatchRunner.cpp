#include "runner/BatchRunner.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "builder/shapes.h"
#include "runner/batchWaitFactor.h"

namespace {

constexpr std::chrono::milliseconds kMaxSleep(100);  // after it, a thread checks its condition without a notification

// Whether there are count tensors with data for every element; if not, prints the message of BaseRunner to standard
// error.
bool hasData(const std::vector<nolk::Tensor>& tensors, int count) {
    if (tensors.empty() && count > 0) {
        std::fputs("tensors is null\n", stderr);
        return false;
    }
    for (std::size_t i = 0; i < tensors.size(); ++i) {
        if (tensors[i].data || elementCount(tensors[i].shape) == 0) continue;
        std::fprintf(stderr, "tensors[%d] is null\n", static_cast<int>(i));
        return false;
    }
    return true;
}

bool sameShapes(const std::vector<nolk::Tensor>& a, const std::vector<nolk::Tensor>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const nolk::Tensor& x, const nolk::Tensor& y) { return sameShape(x.shape, y.shape); });
}

bool sameCounts(const std::vector<nolk::Tensor>& a, const std::vector<nolk::Tensor>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const nolk::Tensor& x, const nolk::Tensor& y) {
        return elementCount(x.shape) == elementCount(y.shape);
    });
}

}  // namespace

BatchRunner::BatchRunner(nolk::Runner* runner, int batch) : BaseBatchRunner(runner, batch) {
    pass_.reserve(1);  // not the whole batch, which may be very large: passes grow as items come
    worker_ = std::thread(&BatchRunner::workerFun, this);
}

bool BatchRunner::run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) {
    // From here on destroy waits for this caller.
    const CallerGuard guard(*this);
    if (!guard || !hasFirstInput(inputs, inputCount) || inputs[0].shape.n < 1) return false;
    std::vector<QueItem> items = toQueItems(inputs, inputCount, outputs, outputCount);
    if (!hasData(items.front().inputs, inputCount) || !hasData(items.front().outputs, outputCount)) return false;
    fillItemsInQue(items);
    readItemsFromQue(items);
    return items.front().ok;
}

void BatchRunner::destroy() {
    stop_ = true;
    cond_.notify_all();
    worker_.join();
    BaseBatchRunner::destroy();
}

bool BatchRunner::enter() {
    const Lock lock(mutex_);
    if (!closed_) ++callers_;
    return !closed_;
}

void BatchRunner::leave() {
    const Lock lock(mutex_);
    --callers_;
    // Notify under the lock: as soon as it is released, the runner may be destroyed.
    if (stop_) cond_.notify_all();
}

void BatchRunner::fillItemsInQue(std::vector<QueItem>& items) {
    const std::size_t limit = 3 * static_cast<std::size_t>(batch_);
    Lock lock(mutex_);
    for (QueItem& item : items) {
        while (queue_.size() >= limit) waitAWhile(lock);
        try {
            queue_.push_back(&item);
        } catch (const std::bad_alloc&) {
            item.state = 1;  // fails this item; an exception would free items that are already queued
        }
        cond_.notify_all();
    }
}

void BatchRunner::readItemsFromQue(const std::vector<QueItem>& items) {
    Lock lock(mutex_);
    for (const QueItem& item : items)
        while (item.state.load(std::memory_order_acquire) != 1) waitAWhile(lock);
}

void BatchRunner::waitAWhile(Lock& lock) { cond_.wait_until(lock, Clock::now() + kMaxSleep); }

void BatchRunner::workerFun() {
    while (true) {
        const std::vector<QueItem*>& pass = drainQue();
        if (pass.empty()) return;
        const bool ok = runPass(pass);
        for (QueItem* item : pass) {
            item->ok = ok;
            item->state.store(1, std::memory_order_release);
        }
        // A caller holds the lock from its check of the state until it sleeps. Taking the lock once here ensures that
        // no caller is between the two, where it would miss the notification.
        { const Lock lock(mutex_); }
        cond_.notify_all();
    }
}

// Takes up to a batch of items; none when the worker should end: stopped, nothing queued and no callers left who could
// queue more.
const std::vector<QueItem*>& BatchRunner::drainQue() {
    pass_.clear();
    Lock lock(mutex_);
    while (queue_.empty()) {
        if (stop_ && callers_ == 0) {
            closed_ = true;
            return pass_;
        }
        waitAWhile(lock);
    }
    if (nolk_batch_wait_factor != 0.0f) waitForFullBatch(lock);
    takeItems();
    cond_.notify_all();  // there is room in the queue again
    return pass_;
}

// Moves the oldest items to the pass: up to a batch, or up to the first that cannot be in one run with them.
void BatchRunner::takeItems() {
    try {
        pass_.reserve(std::min(queue_.size(), static_cast<std::size_t>(batch_)));
    } catch (const std::bad_alloc&) {
        // A shorter pass works too: there is room for at least one item.
    }
    const std::size_t limit = std::min(pass_.capacity(), static_cast<std::size_t>(batch_));
    while (!queue_.empty() && pass_.size() < limit && (pass_.empty() || goTogether(*pass_.front(), *queue_.front()))) {
        pass_.push_back(queue_.front());
        queue_.pop_front();
    }
}

// Until the shapes are known, items of different shapes are not mixed, so that a caller with wrong shapes fails alone.
bool BatchRunner::goTogether(const QueItem& a, const QueItem& b) const {
    if (!shapesAreKnown_) return sameShapes(a.inputs, b.inputs) && sameShapes(a.outputs, b.outputs);
    return sameCounts(a.inputs, b.inputs) && sameCounts(a.outputs, b.outputs);
}

void BatchRunner::waitForFullBatch(Lock& lock) {
    const auto nanoseconds = [] {
        return std::chrono::duration<double, std::nano>(Clock::now().time_since_epoch()).count();
    };
    const double deadline = nanoseconds() + static_cast<double>(nolk_batch_wait_factor) * lastRunSeconds_ * 1e9;
    while (queue_.size() < static_cast<std::size_t>(batch_) && !stop_) {
        const double left = deadline - nanoseconds();
        if (!(left > 0.0)) return;  // also when the factor is NaN
        const auto wait = std::chrono::duration<double, std::nano>(std::min(left, 1e8));
        cond_.wait_until(lock, Clock::now() + std::chrono::duration_cast<Clock::duration>(wait));
    }
}

// An exception makes the items of this pass fail, just as a result of false does; the worker goes on.
bool BatchRunner::runPass(const std::vector<QueItem*>& pass) {
    bool ok = false;
    try {
        if (!canHold(*pass.front())) return false;
        copyItemsToBatchTensors(pass);
        const Clock::time_point start = Clock::now();
        ok = runner_->run(realInputs_.tensors.data(), static_cast<int>(realInputs_.tensors.size()),
                          realOutputs_.tensors.data(), static_cast<int>(realOutputs_.tensors.size()));
        lastRunSeconds_ = std::chrono::duration<double>(Clock::now() - start).count();
        copyBatchTensorsToItems(pass);
        shapesAreKnown_ = shapesAreKnown_ || ok;
    } catch (...) {
        ok = false;
    }
    if (!ok) std::fputs("batch runner error\n", stderr);
    return ok;
}

// Whether the item's values fit into the batch tensors. These get their shapes from the first pass that succeeds; until
// then, from the current pass, since only the inner runner knows which shapes are right.
bool BatchRunner::canHold(const QueItem& item) {
    if (!shapesAreKnown_) {
        if (!sameShapes(realInputs_.samples, item.inputs) || !sameShapes(realOutputs_.samples, item.outputs))
            initRealBatchTensors(item);
        return true;
    }
    if (sameCounts(realInputs_.samples, item.inputs) && sameCounts(realOutputs_.samples, item.outputs)) return true;
    std::fputs("batch runner: tensors must hold as many elements as those of the first run that succeeded\n", stderr);
    return false;
}

void BatchRunner::initRealBatchTensors(const QueItem& item) {
    realInputs_ = {};
    realOutputs_ = makeRealTensors(item.outputs);
    realInputs_ = makeRealTensors(item.inputs);
}

BatchRunner::RealTensors BatchRunner::makeRealTensors(const std::vector<nolk::Tensor>& samples) const {
    RealTensors real;
    real.samples = samples;
    real.tensors.reserve(samples.size() + 1);  // runners reject a null array, even of no tensors
    for (const nolk::Tensor& sample : samples) {
        nolk::TensorShape shape = sample.shape;
        shape.n = batch_;
        if (!isRepresentable(shape)) throw std::bad_alloc();
        // Zeroed, so that a partial first batch does not compute with uninitialised values.
        real.storage.push_back(std::make_unique<float[]>(static_cast<std::size_t>(elementCount(shape))));
        real.tensors.push_back({shape, real.storage.back().get()});
    }
    return real;
}

void BatchRunner::copyItemsToBatchTensors(const std::vector<QueItem*>& pass) {
    for (std::size_t i = 0; i < pass.size(); ++i)
        for (std::size_t j = 0; j < realInputs_.tensors.size(); ++j)
            copyTensorToBatchTensor(pass[i]->inputs[j], realInputs_.tensors[j], static_cast<int>(i));
}

void BatchRunner::copyBatchTensorsToItems(const std::vector<QueItem*>& pass) {
    for (std::size_t i = 0; i < pass.size(); ++i)
        for (std::size_t j = 0; j < realOutputs_.tensors.size(); ++j)
            copyBatchTensorToTensor(realOutputs_.tensors[j], pass[i]->outputs[j], static_cast<int>(i));
}

void BatchRunner::copyTensorToBatchTensor(const nolk::Tensor& sample, nolk::Tensor& batch, int index) {
    const int n = elementCount(sample.shape);
    std::copy_n(sample.data, n, batch.data + index * n);
}

void BatchRunner::copyBatchTensorToTensor(const nolk::Tensor& batch, nolk::Tensor& sample, int index) {
    const int n = elementCount(sample.shape);
    std::copy_n(batch.data + index * n, n, sample.data);
}
