// Values that the graph computes from the batch's extent, such as x * x.shape[0]. They are computed in advance for one
// sample, and are wrong where another batch makes others of them.
//   std::vector<Finding> findings = usesOfBatchValues(graph, evaluateGraphShapes(model, shapesForBatch5), 5);
#pragma once

#include <map>
#include <string>
#include <vector>

#include "convert/evaluate/evaluateNode.h"
#include "convert/graph/Graph.h"
#include "convert/lower/lowerGraph.h"

namespace convert {

// The nodes and outputs that take values which are others in `more`, what is known of the graph for the batch. Values
// that are the same for every sample are allowed, and so are those that only say which extents a result has: extents
// are compared by themselves.
std::vector<Finding> usesOfBatchValues(const Graph& graph, const std::map<std::string, Value>& more,
                                       std::int64_t batch);

}  // namespace convert
