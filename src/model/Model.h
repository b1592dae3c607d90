// What a model file has given so far: its tensors by id, its outputs, and the float arrays of its operations.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <map>
#include <vector>

#include "memory/FloatBuffer.h"

struct Model {
    std::map<std::int16_t, nolk::TensorX*> tensors;  // the builder's; null for ids looked up before they were made
    std::vector<nolk::TensorX*> outputs;             // as they follow in the file
    std::vector<FloatBuffer> arrays;                 // read until build is over; none for a FloatKeeper
};
