// ONNX models for tests, written in ONNX's own notation.
//   convert::Model model = modelOfText("(float[1, 2] x, float[2] w) => (float[1, 2] y) <float[2] w = {1, 2}>"
//                                      "{ y = Mul(x, w) }");
// Tensors in the angle brackets are constants, and need not stand among the inputs.
#pragma once

#include <gtest/gtest.h>
#include <onnx/defs/parser.h>

#include <string>
#include <vector>

#include "convert/onnx/Model.h"

constexpr int kUsualOpset = 17;

inline onnx::ModelProto protoOfText(const std::string& text, int opset = kUsualOpset) {
    onnx::ModelProto proto;
    const std::string header = "<ir_version: 8, opset_import: [\"\": " + std::to_string(opset) + "]> g ";
    const auto status = onnx::OnnxParser::Parse(proto, (header + text).c_str());
    EXPECT_TRUE(status.IsOK()) << text << "\n" << status.ErrorMessage();
    return proto;
}

inline convert::Model modelOfText(const std::string& text, int opset = kUsualOpset) {
    return convert::modelOf(protoOfText(text, opset), {});
}

// 0, 1, 2, ... times a factor, from an offset.
inline std::vector<float> ramp(std::size_t count, float factor = 1, float offset = 0) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i) * factor + offset;
    return values;
}
