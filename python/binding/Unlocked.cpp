#include "Unlocked.h"

#include <unistd.h>

#include <utility>

namespace {

constexpr std::chrono::milliseconds kBetweenChecks{100};

}  // namespace

void Unlocked::handleSignals() {
    const Clock::time_point now = Clock::now();
    if (now - lastCheck_ < kBetweenChecks) return;
    lastCheck_ = now;
    lock();
    if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
    state_ = PyEval_SaveThread();
}

void Unlocked::lock() {
    try {
        PyEval_RestoreThread(std::exchange(state_, nullptr));
    } catch (...) {  // Python ends and unwinds the thread, which must not leave this handler
        for (;;) pause();
    }
}
