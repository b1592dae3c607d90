// The arguments of a call, for people and for programs, whatever the operation.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/Operation.h"

// An array that a call brings. data may be null; count may be what nobody can hold.
struct FloatArray {
    std::string name;
    const float* data;
    std::int64_t count;
};

// "3x3, stride 2, pad 1": what differs from the usual, and no arrays.
std::string detailsOf(const Call& call);

// All fields but shapes, which are those of tensors.
std::vector<nolk::ModelParameter> parametersOf(const Call& call);

std::vector<FloatArray> arraysOf(const Call& call);

// Floats in all of them.
std::int64_t floatCountOf(const Call& call);

// "2x3"
std::string extentsText(int h, int w);
