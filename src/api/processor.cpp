#include "api/processor.h"

const char* processorProblem() {
#ifdef __x86_64__
    __builtin_cpu_init();  // needed before static constructors have run
    // Options that allow AVX2, such as -march=x86-64-v3, allow BMI2 as well.
    const bool hasAvx2 =
        __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
    if (kCompiledForAvx2 && !hasAvx2) return "this build of nolk needs a processor with AVX2 and FMA";
#endif
    return nullptr;
}
