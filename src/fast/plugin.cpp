// The functions by which nolk finds this implementation.
#include <nolk.h>

#include "fast/FastRunnerBuilder.h"

extern "C" {

NOLK_API nolk::RunnerBuilder* nolk_new_runner_builder_impl(const char* cfg) { return new FastRunnerBuilder(cfg); }

// For bytes that are not in nolk's format.
NOLK_API nolk::Runner* nolk_new_runner(const char*, void*, int, int) {
    nolk_push_error_message("NolkFast reads model files in nolk's format only");
    return nullptr;
}
}
