// If nodes whose condition follows from shapes and constants alone, as exporters write them where a network asks for
// the extents of a tensor.
//   takeBranches(model, {{{"x", {1, 3, 224, 224}}}, {{"x", {2, 3, 224, 224}}}});
// Each becomes the nodes of the branch that is taken. Others stay, for the lowering to name them: also those that take
// another branch for another batch.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "convert/onnx/Model.h"

namespace convert {

// inputDims: for every input of the model, without free extents; one map for each batch that the file has to serve,
// the first of which decides alone where the model does not take the others. Throws OnnxError for a file that
// contradicts itself.
void takeBranches(Model& model, const std::vector<std::map<std::string, Dims>>& inputDims);

}  // namespace convert
