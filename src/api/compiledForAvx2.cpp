// Compiled with the options of most of the library, so the compiler's macros tell which instructions it may use there.
// Keep functions out of this file: its code could use these instructions before the processor has been checked.
#include "api/processor.h"

#if defined(__AVX2__) && defined(__FMA__)
const bool kCompiledForAvx2 = true;
#else
const bool kCompiledForAvx2 = false;
#endif
