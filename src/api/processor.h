// Tells whether this processor can run the library as it was compiled.
//   if (const char* problem = processorProblem()) ...  // a message for the user
// Most of the library is compiled for NOLK_X86_ARCH and would stop with an illegal instruction on an older processor.
// Code that runs before this check is compiled for every processor: see nolk_api_baseline in src/CMakeLists.txt.
#pragma once

// Null when there is no problem. May be called from any thread, also before static objects are constructed.
const char* processorProblem();

// Whether most of the library is compiled for AVX2 and FMA.
extern const bool kCompiledForAvx2;
