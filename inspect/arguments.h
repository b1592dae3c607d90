// Describes the arguments of a call of any operation, as text for people and as data for programs.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/Operation.h"

// An array among the arguments of a call. data may be null; count may exceed any memory.
struct FloatArray {
    std::string name;
    const float* data;
    std::int64_t count;
};

// "3x3, stride 2, pad 1": the arguments that differ from the usual values, without arrays.
std::string detailsOf(const Call& call);

// All fields but shapes and constants. Weights are given by their extents, vectors by their count.
std::vector<nolk::ModelParameter> parametersOf(const Call& call);

// Of a constant, its first sample alone.
std::vector<FloatArray> arraysOf(const Call& call);

// Floats in all of them.
std::int64_t floatCountOf(const Call& call);

// "2x3"
std::string extentsText(int h, int w);
