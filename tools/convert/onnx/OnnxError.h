// An ONNX file that cannot be used; what() is one line that says where and why, without the file's name. advice says
// what the user can do, where whoever throws knows it.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace convert {

struct OnnxError : std::runtime_error {
    explicit OnnxError(const std::string& text, std::string whatToDo = {})
        : std::runtime_error(text), advice(std::move(whatToDo)) {}
    std::string advice;
};

// What to do about an attribute, or an input in its place, with a value that ONNX does not allow.
constexpr const char* kAgainstOnnx = "ONNX does not allow this: correct the attribute, or export the network anew";

}  // namespace convert
