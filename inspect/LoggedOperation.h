// What is known about an operation from the call that records it.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/Operation.h"

// A problem with a call: an error, which makes the result undefined or ends the process, or a warning that the call is
// probably not intended.
struct Diagnostic {
    bool isError = false;
    std::string text;
    bool isAboutShapes = false;  // build may reject the operation for the same reason
};

// Counts stop at 2^63 - 1, and a negative extent counts as 0.
struct LoggedOperation {
    const Operation* operation = nullptr;
    std::string details;  // "3x3, stride 2"
    std::vector<nolk::ModelParameter> parameters;
    std::vector<int> inputs;          // indices of logged operations; -1 for a null tensor
    nolk::TensorShape output;         // zeros if there is none
    bool isMade = false;              // whether there is an output: no input was null
    bool isView = false;              // whether the output must use the memory of the input
    std::int64_t parameterCount = 0;  // floats in the arguments: weights, bias, vectors, a constant's values
    std::int64_t storageFloats = 0;   // of the output in memory; a slice needs more than its output's elements
    std::int64_t multiplyAdds = 0;    // see nolk::ModelOperation
    std::int64_t steps = 0;           // rough number of steps of one run; at least multiplyAdds
    std::int64_t scratchFloats = 0;   // the most that are used at a time
    std::vector<Diagnostic> diagnostics;
};
