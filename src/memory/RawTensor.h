// Storage of one or more tensors: those that work in place share a record. It does not own data; the planner, or
// whoever has the constant, sets it.
#pragma once

struct RawTensor {
    float* data = nullptr;
    int size = 0;  // floats that the largest of the sharing tensors needs
};
