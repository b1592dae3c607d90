// Recognises ONNX models, which nolk cannot read, so that an error message can say what to do.
//   if (looksLikeOnnx(path, begin)) throw std::runtime_error(path + ": " + kOnnxAdvice);
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Number of bytes at the start of a file that are examined.
constexpr std::size_t kOnnxBeginBytes = 64;

// The error message for such a file. Once there is a command that converts ONNX models, it should be named here.
extern const char kOnnxAdvice[];

// Whether a file of this name that begins with these bytes, kOnnxBeginBytes or all that it has, is an ONNX model. A
// name that ends in .onnx is enough, unless the file begins like a model file of nolk.
bool looksLikeOnnx(const std::string& path, std::string_view begin);
