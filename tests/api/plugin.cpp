// An implementation in a library of its own, as find_proc loads it. Its builder and runner are numbers in disguise:
// what they were asked for is read back through plugin_calls.
#include <nolk.h>

#include <string>

namespace {
std::string calls;
}

extern "C" {

NOLK_API const char* plugin_calls() { return calls.c_str(); }

NOLK_API nolk::RunnerBuilder* nolk_new_runner_builder_impl(const char* cfg) {
    calls += std::string("builder(") + cfg + ")";
    return nullptr;
}

#ifdef PLUGIN_HAS_RUNNER
NOLK_API nolk::Runner* nolk_new_runner(const char* cfg, void*, int size, int batch) {
    calls += std::string("runner(") + cfg + "," + std::to_string(size) + "," + std::to_string(batch) + ")";
    return nullptr;
}
#else
// Refers to libnolk.so, so that the loader finds that library's nolk_new_runner through this one.
NOLK_API const char* plugin_version() { return nolk_version(); }
#endif
}
