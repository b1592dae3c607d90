// The rules of the table in rewrite.cpp. Each looks whether a node ends its pattern, and if so turns it into a shorter
// form and says true.
#pragma once

#include "convert/graph/GraphEditor.h"

namespace convert {

using Rule = bool (*)(GraphEditor&, Node&);

// affineRules.cpp: a factor or addend for each channel goes into the weights of what comes before.
bool foldBatchNormalization(GraphEditor& editor, Node& node);
bool foldFactor(GraphEditor& editor, Node& node);
bool foldAddend(GraphEditor& editor, Node& node);
bool foldBiasOfMatMul(GraphEditor& editor, Node& node);

// activationRules.cpp
bool findHardSigmoid(GraphEditor& editor, Node& node);
bool findHardSwish(GraphEditor& editor, Node& node);
bool findGelu(GraphEditor& editor, Node& node);
bool findMish(GraphEditor& editor, Node& node);

// normalisationRules.cpp
bool findLayerNormalization(GraphEditor& editor, Node& node);
bool findRmsNormalization(GraphEditor& editor, Node& node);
bool findEuclideanNorm(GraphEditor& editor, Node& node);
bool findEuclideanNormalization(GraphEditor& editor, Node& node);

}  // namespace convert
