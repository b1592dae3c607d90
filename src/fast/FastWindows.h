// Which windows of convolutions and deconvolutions can be read where they are, and the border that this takes. A border
// is rows and columns of zeros around each plane of the input, in the arena, so that a kernel needs no case for windows
// that reach outside. chooseLayouts asks for borders; makeLayers chooses the layers by the same functions, so that both
// agree. All answers depend on shapes alone, not on the processor: the kind decides the order of the sums.
#pragma once

#include "fast/FastGraph.h"

// How a convolution is computed. Depends on shapes alone.
enum class FastConvolutionKind {
    depthwise,  // blocks, a kernel for each channel
    direct,     // reads its windows where they are: in blocks, or in a plain tensor of few channels
    gathered    // copies some windows at a time, from a plain tensor; takes every shape
};
FastConvolutionKind kindOf(const FastConvolution& op, const nolk::TensorShape& in, const nolk::TensorShape& out);

// The border that the windows reach into. The last row and column of windows may end inside the input.
FastBorder borderOf(const FastConvolution& op, const nolk::TensorShape& in, const nolk::TensorShape& out);
FastBorder borderOf(const FastDeconvolution& op, const nolk::TensorShape& in, const nolk::TensorShape& out);

// False if the border is much larger than the planes, as a hostile file may ask for.
bool isReasonable(const FastBorder& border, const nolk::TensorShape& in);
