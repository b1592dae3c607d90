// Whether the samples of a batch keep apart in a network.
//   if (mixesSamples(nolk::inspectModel(bytes, size, {batch, nolk::InspectionDepth::records}), batch)) ...
// If they do, a sample's result depends neither on its place in the batch nor on the other samples, so batches may be
// filled up with any values, and callers may share them. The answer is careful: it may be true for a network whose
// samples come together again in the end.
#pragma once

#include <nolk_model.h>

// The info is that of the same batch. In a batch of 1 there is nothing to mix unless an input or output has more.
bool mixesSamples(const nolk::ModelInfo& info, int batch);
