// An ONNX file in memory.
//   Model model = readModel("net.onnx");
//   for (const onnx::NodeProto& node : model.graph().node()) ...
//   const Array& weights = model.initializers.at("conv1.weight");
// The values of initializers and of Constant nodes stand in `initializers` alone: they are taken out of the messages
// while reading, so that they are in memory once.
#pragma once

#include <onnx/onnx_pb.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "convert/onnx/Array.h"
#include "convert/onnx/OnnxError.h"

namespace convert {

struct Model {
    onnx::ModelProto proto;
    std::filesystem::path folder;  // where external data is looked for
    int opset = 0;                 // of the default domain
    std::map<std::string, Array> initializers;
    std::vector<std::filesystem::path> externalFiles;  // that it was read from besides the model's own
    std::vector<std::string> remarks;                  // "62 tensors of float16 become float32"

    const onnx::GraphProto& graph() const { return proto.graph(); }
};

// An input that a host has to supply: one that no initializer stands for.
struct ModelInput {
    std::string name;
    int type = 0;
    bool hasShape = false;
    Dims dims;                            // -1 for an extent that is not fixed
    std::vector<std::string> parameters;  // its name, "batch", or "" for each extent
    bool isSequence = false;              // a recurrent node takes it as [time, n, features]
};

// Throws OnnxError: a file that cannot be read, is not ONNX, is of an IR outside 3 to 10 or an opset outside 7 to 21.
Model readModel(const std::filesystem::path& path);

// The same for messages that are in memory.
Model modelOf(onnx::ModelProto proto, const std::filesystem::path& folder);

// Whether opening the path may wait for ever, as for a pipe that nobody writes to. One that the user's shell has opened
// does not.
bool mayBlock(const std::filesystem::path& path);

std::vector<ModelInput> inputsOf(const Model& model);

// "node 'conv1' (Conv)", or for a node without a name "node that makes 'x' (Conv)".
std::string describeNode(const onnx::NodeProto& node);

// The nodes that outputs of the graph need, in an order in which each comes after those whose results it takes. Throws
// OnnxError for a cycle, for a name that two nodes or inputs make, and for one that nothing makes.
std::vector<const onnx::NodeProto*> orderedNodes(const Model& model);

}  // namespace convert
