// Gathers the samples of many callers into full batches and runs these on a worker thread. A caller queues its samples
// and sleeps until they are finished; the worker gives a partial batch some time to fill up (a factor, the environment
// variable nolk_batch_wait_factor, times the last run's duration) and calls the inner runner with the full batch size.
//   BatchRunner* shared = new BatchRunner(runnerOfBatch16, 16);  // any number of threads: shared->run(...)
//   shared->destroy();  // runs what is queued, waits until every caller has left, joins the worker
// The first run that succeeds fixes how many elements each tensor of a sample holds; calls with others return false.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <thread>

#include "runner/BaseBatchRunner.h"

class BatchRunner final : public BaseBatchRunner {
public:
    // Starts the worker; throws std::system_error when that fails.
    BatchRunner(nolk::Runner* runner, int batch);

    // Returns the result of the run that contained the first sample. Later samples may be in other runs, whose failures
    // are ignored; existing hosts depend on this. False for a first dimension below 1.
    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override;

    // May be called while callers are inside run, and waits for them; no call may begin once it has been called.
    void destroy() override;

private:
    using Clock = std::chrono::system_clock;
    using Lock = std::unique_lock<std::mutex>;

    // The tensors of a full batch, their storage, and the shapes of the samples that they were made for.
    struct RealTensors {
        std::vector<nolk::Tensor> samples;  // their data pointers are not used
        std::vector<nolk::Tensor> tensors;
        std::vector<std::unique_ptr<float[]>> storage;
    };

    // Counts a caller as inside run, from construction to destruction. Converts to false when the worker has ended.
    class CallerGuard {
    public:
        explicit CallerGuard(BatchRunner& runner) : runner_(runner), counted_(runner.enter()) {}
        ~CallerGuard() {
            if (counted_) runner_.leave();
        }
        CallerGuard(const CallerGuard&) = delete;
        CallerGuard& operator=(const CallerGuard&) = delete;
        explicit operator bool() const { return counted_; }

    private:
        BatchRunner& runner_;
        bool counted_;
    };

    // Callers.
    bool enter();
    void leave();
    void fillItemsInQue(std::vector<QueItem>& items);
    void readItemsFromQue(const std::vector<QueItem>& items);

    // Worker.
    void workerFun();
    const std::vector<QueItem*>& drainQue();
    void takeItems();
    bool goTogether(const QueItem& a, const QueItem& b) const;
    void waitForFullBatch(Lock& lock);
    void waitAWhile(Lock& lock);
    bool runPass(const std::vector<QueItem*>& pass);
    bool canHold(const QueItem& item);
    void initRealBatchTensors(const QueItem& item);
    RealTensors makeRealTensors(const std::vector<nolk::Tensor>& samples) const;
    void copyItemsToBatchTensors(const std::vector<QueItem*>& pass);
    void copyBatchTensorsToItems(const std::vector<QueItem*>& pass);
    static void copyTensorToBatchTensor(const nolk::Tensor& sample, nolk::Tensor& batch, int index);
    static void copyBatchTensorToTensor(const nolk::Tensor& batch, nolk::Tensor& sample, int index);

    std::atomic<bool> stop_{false};
    std::condition_variable cond_;  // with mutex_: items queued, items finished

    // Guarded by mutex_.
    std::deque<QueItem*> queue_;  // not yet taken, oldest first
    int callers_ = 0;             // inside run
    bool closed_ = false;         // the worker has ended

    // Worker only.
    double lastRunSeconds_ = 0.01;
    std::vector<QueItem*> pass_;
    bool shapesAreKnown_ = false;  // a run has succeeded with the shapes of the real tensors
    RealTensors realInputs_;
    RealTensors realOutputs_;

    std::thread worker_;  // last member, because the thread uses all others
};
