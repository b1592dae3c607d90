// Ends the program with a message on a processor that cannot run it. Compiled for every processor, and before all other
// constructors of static objects, which are compiled for newer ones.
#include <cstdio>
#include <cstdlib>

#include "api/processor.h"

namespace {

// 101 is the first priority that programs may use.
__attribute__((constructor(101))) void checkProcessor() {
    const char* const problem = processorProblem();
    if (!problem) return;
    std::fprintf(stderr, "nolk: %s\n", problem);
    std::_Exit(1);  // nothing has been constructed that would have to be destroyed
}

}  // namespace
