#include "fast/FastTeam.h"

#include <algorithm>
#include <chrono>

namespace {

// Parts of the state.
constexpr std::uint64_t kJoined = 0xffff;
constexpr std::uint64_t kOpen = 0x10000;
constexpr std::uint64_t kRound = 0x20000;  // the lowest bit of the round's number

std::uint64_t roundOf(std::uint64_t state) { return state / kRound; }

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
    stopping_ = true;
    publish((roundOf(state_) + 1) * kRound);
    for (std::thread& worker : workers_) worker.join();
}

// Sets the state and wakes those who sleep. A worker counts itself as sleeping before it looks at the state for the
// last time, so one of the two sees the other.
void FastTeam::publish(std::uint64_t state) {
    state_ = state;
    if (sleeping_ == 0) return;
    { const std::lock_guard lock(mutex_); }
    wake_.notify_all();
}

void FastTeam::runAll(int tasks, int chunk, Task task, const void* context) {
    task_ = task;
    context_ = context;
    tasks_ = tasks;
    chunk_ = chunk;
    next_.store(0, std::memory_order_relaxed);
    publish((roundOf(state_) + 1) * kRound | kOpen);
    takeTasks();
    state_.fetch_and(~kOpen);
    // The workers that joined are on their last tasks now.
    for (int spins = 0; (state_.load(std::memory_order_acquire) & kJoined) > 0; ++spins) {
        if (spins < 10000)
            relax();
        else
            std::this_thread::yield();
    }
}

void FastTeam::takeTasks() {
    while (true) {
        const int begin = next_.fetch_add(chunk_, std::memory_order_relaxed);
        if (begin >= tasks_) return;
        for (int task = begin; task < std::min(begin + chunk_, tasks_); ++task) task_(context_, task);
    }
}

void FastTeam::work() {
    for (std::uint64_t round = 0; join(round, round);) {
        takeTasks();
        state_.fetch_sub(1, std::memory_order_release);
    }
}

// Waits for a round after lastRound and joins it. False when the team stops.
bool FastTeam::join(std::uint64_t lastRound, std::uint64_t& round) {
    const auto isNew = [&](std::uint64_t state) { return (state & kOpen) != 0 && roundOf(state) != lastRound; };
    while (true) {
        std::uint64_t state = state_;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(spinMicroseconds_);
        while (!isNew(state) && !stopping_ && std::chrono::steady_clock::now() < deadline) {
            relax();
            state = state_;
        }
        if (!isNew(state) && !stopping_) {
            std::unique_lock lock(mutex_);
            ++sleeping_;
            wake_.wait(lock, [&] { return stopping_ || isNew(state_); });
            --sleeping_;
            state = state_;
        }
        if (stopping_) return false;
        if (isNew(state) && state_.compare_exchange_strong(state, state + 1)) {
            round = roundOf(state);
            return true;
        }
    }
}
