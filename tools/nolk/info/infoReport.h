// What `nolk info` shows of a model, for people and for programs.
#pragma once

#include <nolk_model.h>

#include <string>

// Head, inputs and outputs, a line for each operation, totals.
std::string infoText(const std::string& path, const nolk::ModelInfo& info);

// The same as JSON. Records and layers are numbered from 1, as in the text; what is not known is null.
std::string infoJson(const std::string& path, const nolk::ModelInfo& info);
