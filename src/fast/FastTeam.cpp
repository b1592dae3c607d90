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

FastTeam::FastTeam(int numThreads, int spinMicroseconds)
    : spinMicroseconds_(spinMicroseconds), ranges_(static_cast<std::size_t>(std::max(numThreads, 1))) {
    try {
        for (std::size_t i = 1; i < ranges_.size(); ++i) workers_.emplace_back([this, i] { work(i); });
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
    chunk_ = chunk;
    const auto threads = static_cast<std::int64_t>(ranges_.size());
    for (std::size_t i = 0; i < ranges_.size(); ++i) {
        ranges_[i].next.store(static_cast<std::int64_t>(i) * tasks / threads, std::memory_order_relaxed);
        ranges_[i].end = (static_cast<std::int64_t>(i) + 1) * tasks / threads;
    }
    publish((roundOf(state_) + 1) * kRound | kOpen);
    takeTasks(0);
    state_.fetch_and(~kOpen);
    waitForWorkers();
}

// Those that joined are on their last tasks.
void FastTeam::waitForWorkers() {
    const auto busy = [this] { return (state_ & kJoined) > 0; };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(spinMicroseconds_);
    while (busy() && std::chrono::steady_clock::now() < deadline) relax();
    if (!busy()) return;
    std::unique_lock lock(mutex_);
    callerSleeps_ = true;
    finished_.wait(lock, [&] { return !busy(); });
    callerSleeps_ = false;
}

// The caller says that it sleeps before it looks at the state for the last time, so one of the two sees the other.
void FastTeam::leave() {
    const std::uint64_t before = state_.fetch_sub(1);
    if ((before & kJoined) != 1 || (before & kOpen) != 0 || !callerSleeps_) return;
    { const std::lock_guard lock(mutex_); }
    finished_.notify_one();
}

void FastTeam::takeTasks(std::size_t number) {
    for (std::size_t i = 0; i < ranges_.size(); ++i) {
        Range& range = ranges_[(number + i) % ranges_.size()];
        while (true) {
            const std::int64_t begin = range.next.fetch_add(chunk_, std::memory_order_relaxed);
            if (begin >= range.end) break;
            const auto end = static_cast<int>(std::min(begin + chunk_, range.end));
            for (int task = static_cast<int>(begin); task < end; ++task) task_(context_, task);
        }
    }
}

void FastTeam::work(std::size_t number) {
    for (std::uint64_t round = 0; join(round, round);) {
        takeTasks(number);
        leave();
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
