#include "fast/FastRunnerBuilder.h"
#include "support/backEnd.h"

nolk::RunnerBuilder* newBackEndBuilder(const char* cfg) {
    return new FastRunnerBuilder(cfg ? "num_threads=3" : nullptr);
}

// Sums have partial sums, and exponentials are own code.
float backEndTolerance() { return 4e-6f; }
