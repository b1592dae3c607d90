// An ONNX file that cannot be used; what() is one line that says where and why, without the file's name.
#pragma once

#include <stdexcept>

namespace convert {

struct OnnxError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace convert
