// What every target shares. A target is one function of bytes, which libFuzzer calls with bytes of its own making and
// the replay program with the files of the corpus:
//   extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { ...; return 0; }
#pragma once

#include <nolk.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// A fuzzer may choose one of several checks for each execution, by a byte that nothing else depends on. The replay of
// the corpus makes them all.
#ifdef NOLK_FUZZING
constexpr bool kIsFuzzer = true;
#else
constexpr bool kIsFuzzer = false;
#endif

// Ends the process as a sanitizer would if something that must hold does not.
inline void expect(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "expected: %s\n", what);
    std::abort();
}

// Takes all messages from the library's queue, so that nothing is left from one call of a target to the next.
inline void dropMessages() {
    char text[2] = "x";
    while (text[0] != '\0') nolk_pop_error_message(text, sizeof text);
}
