// ONNX models, which nolk does not read. They are recognised, so that somebody who passes one is told what to do.
//   if (looksLikeOnnx(path, begin)) throw std::runtime_error(path + ": " + kOnnxAdvice);
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// How many of a file's first bytes are looked at.
constexpr std::size_t kOnnxBeginBytes = 64;

// What a user is told about such a file. The command that converts it is to be named here, once there is one.
extern const char kOnnxAdvice[];

// Whether a file of this name that begins with these bytes, kOnnxBeginBytes or all that it has, is an ONNX model. A
// name that ends in .onnx is enough, unless the file begins as nolk's own do.
bool looksLikeOnnx(const std::string& path, std::string_view begin);
