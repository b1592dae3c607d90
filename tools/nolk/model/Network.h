// A model file as commands use it: read into memory, its records looked through, its network ready to run.
//   Network network = loadNetwork("digits.cm", 1, implementation);  network.runner->run(...)
// What is wrong with a file is a std::runtime_error of one line, "digits.cm: why".
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "nolk/commonOptions.h"

// What info and check are ready to spend on a file of unknown origin.
constexpr nolk::ModelLimits kExaminationLimits{std::int64_t{1} << 32, std::int64_t{1} << 37};

// Fails for an ONNX model too.
std::vector<unsigned char> readModel(const std::string& path);

struct Network {
    nolk::ModelInfo info;  // of the records alone
    std::vector<nolk::TensorShape> inputs;
    std::vector<nolk::TensorShape> outputs;
    nolk::Owned<nolk::Runner> runner;
    double loadSeconds = 0;  // that nolk::loadModel took
};

Network loadNetwork(const std::string& path, int batch, const ImplementationOptions& implementation);
