// What a converted file says about its model: the entries of its head info, whose keys docs/model-format.md lists.
#pragma once

#include <nolk_model.h>

#include "convert/graph/Graph.h"

namespace convert {

// A line in remarks for each kind of entries that does not fit.
std::vector<nolk::HeadInfo> headInfoOf(const Model& model, const Graph& graph, std::vector<std::string>& remarks);

}  // namespace convert
