// The kernels of one instruction set. The build compiles the files *Kernels.cpp and levelTable.cpp once for each
// instruction set and defines
//   NOLK_FAST_LEVEL       the namespace of everything in them,
//   NOLK_FAST_LEVEL_NAME  what the instruction set is called.
// The linker keeps only one copy of inline functions with the same name, perhaps a copy that the processor cannot run.
// So these files may only use inline functions that lie in this namespace or that the compiler certainly inlines.
#pragma once

#include "fast/kernels/FastKernels.h"

namespace NOLK_FAST_LEVEL {

extern const FastKernels kernels;

// productKernels.cpp
void product(const FastProduct& call);

// depthwiseKernels.cpp
void depthwise(const FastDepthwise& call);

// stepKernels.cpp
void step(const FastStepCall& call);

// planeKernels.cpp
void pool(const FastPool& call);
void reducePlane(const FastPlaneReduction& call);
void normalizePlane(const FastPlaneNormalization& call);
void resizeRow(const FastResizeRow& call);
void toBlocks(const FastRelayout& call);
void toPlain(const FastRelayout& call);

// rowKernels.cpp
void softmax(const FastSoftmax& call);
void reduce(const FastReduction& call);
void normalizeL2(const FastL2Normalization& call);
void normalizeRows(const FastRowNormalization& call);
void lstmCell(const FastLstmCell& call);
void transpose(const FastTranspose& call);

}  // namespace NOLK_FAST_LEVEL
