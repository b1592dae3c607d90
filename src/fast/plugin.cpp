// The functions by which nolk finds this implementation.
#include <nolk.h>

#include <cstdio>

#include "fast/FastRunnerBuilder.h"
#include "fast/kernels/FastKernels.h"

namespace {

void report(const char* text) {
    std::fprintf(stderr, "%s\n", text);
    nolk_push_error_message(text);
}

}  // namespace

extern "C" {

NOLK_API nolk::RunnerBuilder* nolk_new_runner_builder_impl(const char* cfg) {
    // libnolk tests the processor before it loads this library, but can be built for older ones.
    if (!supportedFastKernels().empty()) return new FastRunnerBuilder(cfg);
    report("NolkFast needs a processor with AVX2 and FMA");
    return nullptr;
}

// For bytes that are not in nolk's format.
NOLK_API nolk::Runner* nolk_new_runner(const char*, void*, int, int) {
    report("NolkFast reads model files in nolk's format only");
    return nullptr;
}
}
