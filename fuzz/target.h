// What every target shares. A target is one function of bytes, which libFuzzer calls with bytes of its own making and
// the replay program with the files of the corpus:
//   extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { ...; return 0; }
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Ends the process as a sanitizer would if something that must hold does not.
inline void expect(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "expected: %s\n", what);
    std::abort();
}
