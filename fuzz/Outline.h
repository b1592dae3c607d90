// What a fuzzer has to know of a network before it is built: whether it is small enough to run often, whether it would
// end the process, and the shapes that a host needs.
//   const Outline outline = outlineOf(file.data(), file.size(), batch);  if (outline.isHarmless) ...
#pragma once

#include <nolk_model.h>

#include <cstddef>
#include <vector>

// The memory and the steps of one run that every target allows for a network.
constexpr nolk::ModelLimits kSmall{1 << 20, 200'000};

struct Outline {
    // False for a network above the limits, and for the two operations that end the process as nolk.h says: a concat
    // without inputs, and a resize in an unknown mode.
    bool isHarmless = true;
    std::vector<nolk::TensorShape> inputs;
    std::vector<nolk::TensorShape> outputs;  // without outputs that no record makes
};

// Of any bytes; a file that cannot be read is described as far as its records go.
Outline outlineOf(const void* data, std::size_t size, int batch);

class OperationLog;

// Of a network that was recorded by a log.
Outline outlineOf(const OperationLog& log, const std::vector<nolk::TensorX*>& outputs);
