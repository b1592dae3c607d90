// The storage of one or more tensors: input and output of an operation in place share one record. It does not own data;
// the planner sets data, or the builder for a constant.
#pragma once

struct RawTensor {
    float* data = nullptr;
    int size = 0;  // floats that the largest of the sharing tensors needs
};
