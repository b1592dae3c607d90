// The .npy format for arrays of float32: "\x93NUMPY", a version, the length of a header, the header (the text of a
// Python dictionary with 'descr', 'fortran_order' and 'shape'), then the values.
//   readNpy("x.npy", {1, 1, 28, 28, 3}, values);  writeFile("y.npy", npyBytes(tensor));
#pragma once

#include <string>

#include "nolk/model/HostTensor.h"

// Reads the array of a file of version 1.0 to 3.0 that has the shape `expected`, but for leading extents of 1, which
// may be missing; a matrix [n, c] may also come as [n, c, 1, 1]. values has room for it. Throws std::runtime_error,
// "path: what, expected what", before it reads any value; it does not trust the sizes in a header.
void readNpy(const std::string& path, const nolk::TensorShape& expected, float* values);

// The bytes of a file of version 1.0.
std::string npyBytes(const HostTensor& tensor);
