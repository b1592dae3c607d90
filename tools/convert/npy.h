// Arrays of .npy files.
#pragma once

#include <string>

#include "convert/onnx/Array.h"

namespace convert {

// Floats of 32 and 64 bits become floats, integers of 1 to 8 bytes and booleans integers. Throws OnnxError, "path:
// why", for other types, Fortran's order and files that are damaged.
Array readNpy(const std::string& path);

}  // namespace convert
