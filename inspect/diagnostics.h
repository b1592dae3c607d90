// What a builder's call can have been given that its maker hardly meant. Nothing here repeats what build itself
// refuses.
#pragma once

#include <vector>

#include "inspect/LoggedOperation.h"

// Adds to the operation's diagnostics. Its output must be set; inputs has a shape for each input.
void addDiagnostics(LoggedOperation& operation, const Call& call, const std::vector<nolk::TensorShape>& inputs);

// Whether the result has to lie where the input does: nothing is copied.
bool isView(const Call& call);
