// The threads of one runner: the callers of run, and num_threads - 1 workers that help them.
//   FastTeam team(4, 20);
//   FastTeam::Session session(team);           // for one run; gets the workers if no other run has them
//   session.forEach(tasks, floats, [&](int task) {...});  // on several threads, returns when all tasks are done
// Tasks must write to different places. Nothing is allocated after construction. Workers wait spin_us microseconds for
// the next tasks before they sleep, and so does a caller for workers that are still busy.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

class FastTeam {
public:
    // Throws std::system_error if a thread cannot be started.
    FastTeam(int numThreads, int spinMicroseconds);
    ~FastTeam();
    FastTeam(const FastTeam&) = delete;
    FastTeam& operator=(const FastTeam&) = delete;

    class Session {
    public:
        explicit Session(FastTeam& team)
            : team_(team), hasWorkers_(!team.workers_.empty() && !team.busy_.exchange(true)) {}
        ~Session() {
            if (hasWorkers_) team_.busy_.store(false);
        }
        Session(const Session&) = delete;
        Session& operator=(const Session&) = delete;

        // Threads that forEach uses.
        int size() const { return hasWorkers_ ? static_cast<int>(team_.workers_.size()) + 1 : 1; }

        // floats: that one task goes through, roughly. Little work is done without the workers, because to hand it over
        // takes a microsecond; short tasks are handed over several at a time.
        template <typename F>
        void forEach(int tasks, std::int64_t floats, const F& f) {
            if (!hasWorkers_ || tasks < 2 || tasks * floats < 2 * kFloatsWorthSharing) {
                for (int task = 0; task < tasks; ++task) f(task);
                return;
            }
            const std::int64_t many = kFloatsWorthSharing / (4 * std::max<std::int64_t>(floats, 1));
            const int chunk = static_cast<int>(std::clamp<std::int64_t>(many, 1, 1 + tasks / (4 * size())));
            team_.runAll(
                tasks, chunk, [](const void* context, int task) { (*static_cast<const F*>(context))(task); }, &f);
        }

    private:
#ifdef NOLK_FUZZING
        static constexpr std::int64_t kFloatsWorthSharing = 16;  // fuzzers have small networks only
#else
        static constexpr std::int64_t kFloatsWorthSharing = 16384;
#endif

        FastTeam& team_;
        bool hasWorkers_;
    };

private:
    using Task = void (*)(const void* context, int task);

    void runAll(int tasks, int chunk, Task task, const void* context);
    void work(std::size_t number);
    bool join(std::uint64_t lastRound, std::uint64_t& round);
    void leave();
    void waitForWorkers();
    void takeTasks(std::size_t number);
    void publish(std::uint64_t state);
    void stop();

    // fixed after construction
    std::vector<std::thread> workers_;
    int spinMicroseconds_;

    std::atomic<bool> busy_{false};  // a session has the workers

    // Written before a round is opened, fixed until all workers have left it.
    Task task_ = nullptr;
    const void* context_ = nullptr;
    int chunk_ = 1;  // tasks that a thread takes at a time

    // The number of the round, whether it is open, and how many workers have joined it. A worker that comes after the
    // round was closed does not join, so nobody waits for workers that sleep.
    std::atomic<std::uint64_t> state_{0};
    std::atomic<bool> stopping_{false};

    // Each thread begins with a range of neighbouring tasks of its own, since these read what it has written before,
    // and then takes tasks of others. One for the caller, then for each worker.
    struct alignas(64) Range {
        std::atomic<std::int64_t> next{0};
        std::int64_t end = 0;
    };
    std::vector<Range> ranges_;

    // Sleeping workers wait for a new state.
    std::atomic<int> sleeping_{0};
    std::mutex mutex_;
    std::condition_variable wake_;

    // A caller that sleeps waits for the last worker to leave the round.
    std::atomic<bool> callerSleeps_{false};
    std::condition_variable finished_;
};
