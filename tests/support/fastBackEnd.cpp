#include <gtest/gtest.h>

#include "fast/FastRunnerBuilder.h"
#include "fast/kernels/FastKernels.h"
#include "support/backEnd.h"

nolk::RunnerBuilder* newBackEndBuilder(const char* cfg) {
    return new FastRunnerBuilder(cfg ? "num_threads=3" : nullptr);
}

void forEachInstructionSet(const std::function<void()>& f) {
    for (const FastKernels* kernels : supportedFastKernels()) {
        SCOPED_TRACE(kernels->name);
        forceFastKernels(kernels);
        f();
    }
    forceFastKernels(nullptr);
}

// Sums have partial sums, and exponentials are own code.
float backEndTolerance() { return 4e-6f; }
