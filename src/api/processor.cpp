#include "api/processor.h"

const char* processorProblem() {
#ifdef __x86_64__
    __builtin_cpu_init();  // needed where no constructor has run yet
    // The compiler may use BMI2 too, wherever it may use AVX2.
    const bool hasAvx2 =
        __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
    if (kCompiledForAvx2 && !hasAvx2) return "this build of nolk needs a processor with AVX2 and FMA";
#endif
    return nullptr;
}
