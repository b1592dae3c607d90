// What `nolk info` shows of a model, for people and for programs.
#pragma once

#include <string>

#include "nolk/info/ExaminedModel.h"

// Head, inputs and outputs, a line for each operation, totals.
std::string infoText(const ExaminedModel& model);

// The same as JSON. Records and layers are numbered from 1, as in the text; what is not known is null.
std::string infoJson(const ExaminedModel& model);
