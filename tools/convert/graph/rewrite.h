// Patterns of nodes that become fewer ones: what exporters write out, and what can be computed in advance.
#pragma once

#include "convert/graph/Graph.h"

namespace convert {

// Until no rule of the table fits any more.
void rewrite(Graph& graph);

}  // namespace convert
