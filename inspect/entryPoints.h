// The implementations of the functions of nolk_model.h, which call them after checking the processor.
#pragma once

#include <nolk_model.h>

nolk::ModelInfo inspectFile(const void* data, std::size_t size, const nolk::InspectionOptions& options);
nolk::ModelCheck checkFile(const void* data, std::size_t size, const nolk::ModelLimits& limits);
nolk::Runner* loadFile(const void* data, std::size_t size, int batch, const char* implementation,
                       const nolk::ModelLimits& limits);
nolk::ModelWriter* createModelWriter(const nolk::ModelFileOptions& options);
