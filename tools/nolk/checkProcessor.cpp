// Ends the program with a message on a processor that cannot run it. This file is compiled for every processor, and
// runs before the constructors of all other static objects, which are compiled for newer processors.
#include <cstdio>
#include <cstdlib>

#include "api/processor.h"

namespace {

// 101 is the first priority that programs may use.
__attribute__((constructor(101))) void checkProcessor() {
    const char* const problem = processorProblem();
    if (!problem) return;
    std::fprintf(stderr, "nolk: %s\n", problem);
    std::_Exit(1);  // no static object has been constructed yet, so none must be destroyed
}

}  // namespace
