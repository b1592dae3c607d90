// The x86-64 level of instructions that this processor supports: 2, 3 (AVX2, FMA) or 4 (AVX-512). Only some features of
// each level are tested, because every processor that has them has the rest too.
#pragma once

#ifdef __x86_64__
inline int x86Level() {
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma") || !__builtin_cpu_supports("bmi2")) return 2;
    const bool hasAvx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                           __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") &&
                           __builtin_cpu_supports("avx512vl");
    return hasAvx512 ? 4 : 3;
}
#endif
