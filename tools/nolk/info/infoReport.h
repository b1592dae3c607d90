// The reports of `nolk info` about a model, as text for people and as JSON for programs.
#pragma once

#include <nolk_model.h>

#include <string>

// Text with head, inputs and outputs, a line for each operation, and totals.
std::string infoText(const std::string& path, const nolk::ModelInfo& info);

// The same as JSON. Records and layers are numbered from 1, as in the text; unknown values are null.
std::string infoJson(const std::string& path, const nolk::ModelInfo& info);
