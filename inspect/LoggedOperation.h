// What is known of an operation from the call that records it.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/Operation.h"

// Something about a call that its maker can hardly have meant. An error leaves the result undefined, or ends the
// process.
struct Diagnostic {
    bool isError = false;
    std::string text;
    bool isAboutShapes = false;  // so that build may refuse the operation for the same reason
};

// Counts stop at 2^63 - 1, and a negative extent counts as 0.
struct LoggedOperation {
    const Operation* operation = nullptr;
    std::string details;  // "3x3, stride 2"
    std::vector<nolk::ModelParameter> parameters;
    std::vector<int> inputs;          // places among the logged operations; -1 for a null tensor
    nolk::TensorShape output;         // zeros where there is none
    bool isMade = false;              // whether there is an output: no input was null
    bool isView = false;              // whether the output has to lie where the input does
    std::int64_t parameterCount = 0;  // floats that the call brings: weights, bias, vectors, a constant's values
    std::int64_t multiplyAdds = 0;    // see nolk::ModelOperation
    std::int64_t steps = 0;           // rough number of steps that running takes; at least multiplyAdds
    std::int64_t scratchFloats = 0;   // at most that many at a time
    std::vector<Diagnostic> diagnostics;
};
