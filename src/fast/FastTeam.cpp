#include "fast/FastTeam.h"

#include <chrono>

namespace {

void relax() {
#ifdef __x86_64__
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace

FastTeam::FastTeam(int numThreads, int spinMicroseconds) : spinMicroseconds_(spinMicroseconds) {
    try {
        for (int i = 1; i < numThreads; ++i) workers_.emplace_back([this] { work(); });
    } catch (...) {
        stop();
        throw;
    }
}

FastTeam::~FastTeam() { stop(); }

void FastTeam::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        ++round_;
    }
    wake_.notify_all();
    for (std::thread& worker : workers_) worker.join();
}

void FastTeam::runAll(int tasks, Task task, const void* context) {
    task_ = task;
    context_ = context;
    tasks_ = tasks;
    next_.store(0, std::memory_order_relaxed);
    working_.store(static_cast<int>(workers_.size()), std::memory_order_relaxed);
    bool anySleeps = false;
    {
        // Under the mutex, so that no worker goes to sleep between its last look at the round and this change.
        const std::lock_guard lock(mutex_);
        ++round_;
        anySleeps = sleeping_ > 0;
    }
    if (anySleeps) wake_.notify_all();
    takeTasks();
    // The workers are on their last tasks now.
    for (int spins = 0; working_.load(std::memory_order_acquire) > 0; ++spins) {
        if (spins < 2000)
            relax();
        else
            std::this_thread::yield();
    }
}

void FastTeam::takeTasks() {
    for (int task = next_.fetch_add(1, std::memory_order_relaxed); task < tasks_;
         task = next_.fetch_add(1, std::memory_order_relaxed))
        task_(context_, task);
}

void FastTeam::work() {
    for (unsigned seen = 0; waitFor(seen); ++seen) {
        takeTasks();
        working_.fetch_sub(1, std::memory_order_release);
    }
}

// Waits until the round is no longer `seen`. False when the team stops. A round cannot end before every worker has seen
// it, so rounds are seen one by one.
bool FastTeam::waitFor(unsigned seen) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(spinMicroseconds_);
    while (round_.load(std::memory_order_acquire) == seen && std::chrono::steady_clock::now() < deadline) relax();
    if (round_.load(std::memory_order_acquire) == seen) {
        std::unique_lock lock(mutex_);
        ++sleeping_;
        wake_.wait(lock, [&] { return round_.load() != seen; });
        --sleeping_;
    }
    return !stopping_.load(std::memory_order_acquire);
}
