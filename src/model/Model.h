// What has been read from a model file so far: its tensors by id, its outputs, and the float arrays of its operations.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <map>
#include <vector>

#include "memory/FloatBuffer.h"

struct Model {
    std::map<std::int16_t, nolk::TensorX*>
        tensors;                          // owned by the builder; null for an id that was used before it was made
    std::vector<nolk::TensorX*> outputs;  // in the order of the file
    std::vector<FloatBuffer> arrays;      // must live until build returns; none if the builder is a FloatKeeper
};
