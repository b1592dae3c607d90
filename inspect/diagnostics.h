// Finds arguments of a call that are probably mistakes. It does not repeat checks that build itself makes.
#pragma once

#include <string>
#include <vector>

#include "inspect/LoggedOperation.h"

// Adds to the operation's diagnostics. Its output must be set; inputs has a shape for each input.
void addDiagnostics(LoggedOperation& operation, const Call& call, const std::vector<nolk::TensorShape>& inputs);

// Whether the result must use the memory of the input, because the operation copies nothing.
bool isView(const Call& call);

// What is wrong with such a result whose input, the tensor with that id, has so many uses; empty when nothing is.
std::string viewProblem(bool isInputConstant, int inputUses, int inputId);
