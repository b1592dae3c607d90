// Compares a converted file with the plain meaning of the ONNX model that it was made from.
//   CheckResult result = check(model, converted, {});
//   if (!result.passed) report(result.failure);
// The file is loaded by libnolk for batch 1 and 2, and run on random inputs or on those that a user brings.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "convert/onnx/Model.h"

namespace convert {

// How a tensor of a converted file stands for one of the ONNX graph: its elements in order are those of the ONNX tensor
// transposed by perm. An empty perm means no transposition. batchAxis is that of the ONNX tensor.
struct TensorPlace {
    std::string name;
    std::vector<int> perm;
    int batchAxis = 0;  // -1: has no batch, each sample of the file's tensor equals the whole ONNX tensor
};

struct ConvertedFile {
    std::vector<unsigned char> bytes;
    std::vector<TensorPlace> inputs;   // in the order in which the file takes them
    std::vector<TensorPlace> outputs;  // in the file's order
};

struct CheckOptions {
    std::map<std::string, Dims> inputDims;             // for batch 1, in ONNX's order
    std::vector<TensorPlace> graphInputs;              // all of the graph's; the file may do without some
    std::map<std::string, Array> inputs;               // a user's; random ones stand in for those that are missing
    bool evaluateSamplesAlone = false;                 // the ONNX graph itself takes batch 1 only
    std::function<ConvertedFile()> withAllTensors;     // the same with every tensor that has a place as output, or none
    std::function<void(double)> progress;              // 0 to 1
    std::int64_t memoryBytes = std::int64_t{4} << 30;  // that either network may need for batch 2
    std::int64_t steps = 1'000'000'000'000;            // and the multiply-adds
    double tolerance = 1e-4;                           // of an output's largest value
};

struct OutputDifference {
    std::string name;
    double absolute = 0;  // largest |converted - ONNX|
    double relative = 0;  // that, divided by the largest |ONNX|
};

struct CheckResult {
    bool passed = false;
    std::vector<OutputDifference> outputs;  // the larger of both batches
    std::string failure;                    // one line that names the first tensor that departs; empty when passed
};

CheckResult check(const Model& model, const ConvertedFile& converted, const CheckOptions& options);

}  // namespace convert
