// Compiled like most of the library, so that the compiler itself says what it may use. This file must not hold code.
#include "api/processor.h"

#if defined(__AVX2__) && defined(__FMA__)
const bool kCompiledForAvx2 = true;
#else
const bool kCompiledForAvx2 = false;
#endif
