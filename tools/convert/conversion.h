// From an ONNX model to the bytes of a nolk file, or to the list of what stands in the way.
//   Model model = readModel("net.onnx");
//   takeBranches(model, ConvertOptions{});
//   const Conversion made = convertModel(model, {});
//   if (made.findings.empty()) use(made.file.bytes);
//   CheckResult result = check(model, made.file, checkOptionsFor(model, {}, made));
// A file is made as a whole or not at all. Nothing is printed. Throws OnnxError for a model that cannot be read as one.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "convert/check/check.h"
#include "convert/lower/lowerGraph.h"
#include "convert/onnx/Model.h"

namespace convert {

struct ConvertOptions {
    std::map<std::string, Dims> shapes;  // of inputs whose extents the model leaves free
    int version = 4;
    bool lossy = false;
    bool keepsBatch = false;  // a batch above 1 that the file fixes stays a part of every sample
};

struct Conversion {
    ConvertedFile file;                     // without bytes when there are findings
    std::map<std::string, Dims> inputDims;  // of ONNX's inputs, for one sample
    std::vector<TensorPlace> inputs;        // all of ONNX's; the file has those that an output depends on
    bool evaluateSamplesAlone = false;      // the ONNX graph itself takes one sample only
    bool hasFreedBatch = false;             // a batch above 1 that the file fixes was taken for a free one
    std::vector<std::string> remarks;       // lines for the user
    std::vector<Finding> findings;          // what cannot be converted
    int unseenNodes = 0;                    // behind findings, with inputs whose shapes nobody knows
    std::vector<std::string> operations;    // of the file, in its order
};

// Puts the branch that is taken in the place of each If that shapes and constants decide.
void takeBranches(Model& model, const ConvertOptions& options);

Conversion convertModel(const Model& model, const ConvertOptions& options);

// The same with the model's weights freed as they are written; the model is of no use afterwards.
Conversion convertModel(Model&& model, const ConvertOptions& options);

// For a conversion that succeeded; the model must live as long as the result is used.
CheckOptions checkOptionsFor(const Model& model, const ConvertOptions& options, const Conversion& conversion);

}  // namespace convert
