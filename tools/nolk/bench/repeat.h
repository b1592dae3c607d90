// Repeats what is to be measured.
#pragma once

#include <functional>

struct Limit {
    int runs = 0;  // 0: as many as the seconds allow, but one at least and kMostRuns at most
    double seconds = 3;
};

constexpr int kMostRuns = 10'000'000;

// Calls `once` until the limit is reached. On a terminal a bar, headed by `what`, shows how far it has come.
void repeat(const Limit& limit, const char* what, const std::function<void()>& once);
