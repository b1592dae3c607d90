// A loaded model file: information from its records, and its network ready to run.
//   Network network = loadNetwork("digits.cm", 1, implementation);  network.runner->run(...)
// Problems with a file are a std::runtime_error with one line, "digits.cm: why".
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "nolk/commonOptions.h"

// The memory and computation that info and check allow for a file of unknown origin.
constexpr nolk::ModelLimits kExaminationLimits{std::int64_t{1} << 32, std::int64_t{1} << 37};

// Fails for an ONNX model too.
std::vector<unsigned char> readModel(const std::string& path);

struct Network {
    nolk::ModelInfo info;  // from the records only
    std::vector<nolk::TensorShape> inputs;
    std::vector<nolk::TensorShape> outputs;
    nolk::Owned<nolk::Runner> runner;
    double loadSeconds = 0;  // duration of nolk::loadModel
};

// The name that a model gives its i-th input or output, in quotes and with a blank behind; empty if it gives no names.
std::string nameText(const std::vector<std::string>& names, std::size_t i);

Network loadNetwork(const std::string& path, int batch, const ImplementationOptions& implementation);
