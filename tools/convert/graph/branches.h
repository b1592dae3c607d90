// If nodes whose condition follows from shapes and constants alone, as exporters write them where a network asks for
// the extents of a tensor.
//   takeBranches(model, {{"x", {1, 3, 224, 224}}});
// Each becomes the nodes of the branch that is taken. Others stay, for the lowering to name them.
#pragma once

#include <map>
#include <string>

#include "convert/onnx/Model.h"

namespace convert {

// inputDims: for every input of the model, without free extents. Throws OnnxError for a file that contradicts itself.
void takeBranches(Model& model, const std::map<std::string, Dims>& inputDims);

}  // namespace convert
