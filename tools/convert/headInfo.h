// What a converted file says about its model: the entries of its head info, whose keys docs/model-format.md lists.
#pragma once

#include <nolk_model.h>

#include "convert/graph/Graph.h"

namespace convert {

std::vector<nolk::HeadInfo> headInfoOf(const Model& model, const Graph& graph);

}  // namespace convert
