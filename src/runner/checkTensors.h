// The check of the tensors that a host gives to a runner.
#pragma once

#include <nolk.h>

#include <vector>

// Whether there are as many tensors as expected, with these shapes, and with data. If not, prints a line to standard
// error.
bool tensorsMatch(const nolk::Tensor* tensors, int count, const std::vector<nolk::TensorShape>& expected);
