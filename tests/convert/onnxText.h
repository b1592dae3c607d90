// ONNX models for tests, written in ONNX's own notation.
//   convert::Model model = modelOfText("(float[1, 2] x, float[2] w) => (float[1, 2] y) <float[2] w = {1, 2}>"
//                                      "{ y = Mul(x, w) }");
// Tensors in the angle brackets are constants, and need not stand among the inputs.
#pragma once

#include <gtest/gtest.h>
#include <onnx/defs/parser.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
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

// Tests with a folder of their own.
class InFolder : public testing::Test {
protected:
    InFolder() { std::filesystem::create_directories(folder_ / "net"); }
    ~InFolder() override { std::filesystem::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("nolk-convert-" + std::to_string(getpid()));
};

// 0, 1, 2, ... times a factor, from an offset.
inline std::vector<float> ramp(std::size_t count, float factor = 1, float offset = 0) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i) * factor + offset;
    return values;
}

// Gives float constants whose values the notation leaves out, as in "float[3, 3] w = {0}", a value for every element:
// from -1 to 1, of those named wv from 0.5 to 2.5.
inline onnx::ModelProto withWeights(onnx::ModelProto proto) {
    int next = 0;
    for (auto& tensor : *proto.mutable_graph()->mutable_initializer()) {
        std::int64_t count = 1;
        for (const std::int64_t extent : tensor.dims()) count *= extent;
        if (tensor.data_type() != onnx::TensorProto::FLOAT || tensor.float_data_size() == count) continue;
        tensor.clear_float_data();
        for (std::int64_t i = 0; i < count; ++i)
            tensor.add_float_data(static_cast<float>(next++ * 37 % 41) * 0.05F - (tensor.name() == "wv" ? -0.5F : 1));
    }
    return proto;
}
