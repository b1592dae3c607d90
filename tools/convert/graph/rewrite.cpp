#include "convert/graph/rewrite.h"

namespace convert {

void rewrite(Graph& graph) { removeUnused(graph); }

}  // namespace convert
