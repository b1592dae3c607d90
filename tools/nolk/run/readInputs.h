#pragma once

#include <vector>

#include "nolk/model/HostTensor.h"
#include "nolk/run/InputOptions.h"

// The tensors for a network's inputs, of these shapes, from the files of the options: one file for each input, or one
// for each sample of each input. Throws std::runtime_error, "path: what, expected what".
std::vector<HostTensor> readInputs(const std::vector<nolk::TensorShape>& shapes, const InputOptions& options);
