// Releases Python's global lock while it lives, so that other threads run Python meanwhile.
//   Unlocked unlocked;  work();  unlocked.handleSignals();  moreWork();
// The work must not touch Python's objects. Exceptions leave with the lock held again.
// A thread that still works when Python ends never gets the lock back and waits for the end of the process, as it does
// from Python 3.14 on. Older versions would end the thread by unwinding its stack, past noexcept destructors (which
// aborts the process) and past destructors that release Python's objects without the lock.
#pragma once

#include <pybind11/pybind11.h>

#include <chrono>

class Unlocked {
public:
    Unlocked() : state_(PyEval_SaveThread()) {}
    ~Unlocked() {
        if (state_) lock();
    }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

    // Runs the handlers of signals that have come, Ctrl-C's for example, and throws what they raise. It takes the lock
    // ten times a second at most, since that may mean to wait for another thread.
    void handleSignals();

private:
    using Clock = std::chrono::steady_clock;

    void lock();

    PyThreadState* state_;  // null while the lock is held
    Clock::time_point lastCheck_ = Clock::now();
};
