// The kernels, compiled for one instruction set. All of them give the same bits on every processor.
//   const FastKernels& kernels = fastKernels();  kernels.product(call);
// Kernels use the calling thread only, allocate nothing and check nothing.
#pragma once

#include <vector>

#include "fast/kernels/planes.h"
#include "fast/kernels/products.h"
#include "fast/kernels/rows.h"
#include "fast/kernels/steps.h"

struct FastKernels {
    const char* name;  // of the instruction set, for example "x86-64-v4"
    void (*product)(const FastProduct&);
    void (*depthwise)(const FastDepthwise&);
    void (*step)(const FastStepCall&);
    void (*pool)(const FastPool&);
    void (*reducePlane)(const FastPlaneReduction&);
    void (*normalizePlane)(const FastPlaneNormalization&);
    void (*resizeRow)(const FastResizeRow&);
    void (*toBlocks)(const FastRelayout&);
    void (*toPlain)(const FastRelayout&);
    void (*softmax)(const FastSoftmax&);
    void (*reduce)(const FastReduction&);
    void (*normalizeL2)(const FastL2Normalization&);
    void (*normalizeRows)(const FastRowNormalization&);
    void (*lstmCell)(const FastLstmCell&);
    void (*transpose)(const FastTranspose&);
};

// The best that this processor supports, or the one that forceFastKernels has set. There must be one.
const FastKernels& fastKernels();

// All that this processor supports, the best one last; none on x86-64 without AVX2 and FMA.
const std::vector<const FastKernels*>& supportedFastKernels();

// For tests and benchmarks; null for the best one again. Runners that exist already keep theirs.
void forceFastKernels(const FastKernels* kernels);
