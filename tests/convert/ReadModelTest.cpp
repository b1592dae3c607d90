// Files that the converter reads, and those that it must refuse.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <functional>

#include "convert/evaluate/evaluateGraph.h"
#include "onnxText.h"

namespace {

using convert::Dims;
using onnx::TensorProto;
using Floats = std::vector<float>;

class ReadModel : public InFolder {
protected:
    convert::Model model(const std::string& bytes) const { return convert::readModel(write("net/net.onnx", bytes)); }
    static std::string refusalOfFile(const std::string& path) {
        try {
            convert::readModel(path);
        } catch (const convert::OnnxError& error) {
            return error.what();
        }
        return "is read";
    }
    std::string refusalOf(const std::string& bytes) const { return refusalOfFile(write("net/net.onnx", bytes)); }
};

const char kGraph[] = "(float[N,2] x) => (float[N,2] y) <float[2] w = {1,2}> { y = Mul(x, w) }";

// Every form in which a file stores 1, 2 (or true, true for booleans).
TEST(ArrayOf, ReadsEveryFormOfStorage) {
    struct Form {
        int type;
        std::function<void(TensorProto&)> store;
        bool isFloat;
    };
    const auto raw = [](auto one, auto two) {
        return [=](TensorProto& tensor) {
            const decltype(one) values[] = {one, two};
            tensor.set_raw_data(values, sizeof values);
        };
    };
    const auto numbers = [](auto add, int one, int two) {
        return [=](TensorProto& tensor) {
            (tensor.*add)(one);
            (tensor.*add)(two);
        };
    };
    using std::uint16_t;
    const Form kForms[] = {
        {TensorProto::FLOAT, raw(1.0F, 2.0F), true},
        {TensorProto::FLOAT, numbers(&TensorProto::add_float_data, 1, 2), true},
        {TensorProto::DOUBLE, raw(1.0, 2.0), true},
        {TensorProto::DOUBLE, numbers(&TensorProto::add_double_data, 1, 2), true},
        {TensorProto::FLOAT16, raw(uint16_t{0x3c00}, uint16_t{0x4000}), true},
        {TensorProto::FLOAT16, numbers(&TensorProto::add_int32_data, 0x3c00, 0x4000), true},
        {TensorProto::BFLOAT16, raw(uint16_t{0x3f80}, uint16_t{0x4000}), true},
        {TensorProto::BFLOAT16, numbers(&TensorProto::add_int32_data, 0x3f80, 0x4000), true},
        {TensorProto::INT8, raw(std::int8_t{1}, std::int8_t{2}), false},
        {TensorProto::UINT8, numbers(&TensorProto::add_int32_data, 1, 2), false},
        {TensorProto::INT16, raw(std::int16_t{1}, std::int16_t{2}), false},
        {TensorProto::INT32, raw(1, 2), false},
        {TensorProto::INT64, raw(std::int64_t{1}, std::int64_t{2}), false},
        {TensorProto::INT64, numbers(&TensorProto::add_int64_data, 1, 2), false},
        {TensorProto::UINT32, numbers(&TensorProto::add_uint64_data, 1, 2), false},
    };
    for (const Form& form : kForms) {
        TensorProto tensor;
        tensor.set_data_type(form.type);
        tensor.add_dims(2);
        form.store(tensor);
        SCOPED_TRACE(tensor.ShortDebugString());
        const convert::Array array = convert::arrayOf(tensor, {});
        EXPECT_EQ(array.type(), form.type);
        if (form.isFloat)
            EXPECT_EQ(array.floats(), (Floats{1, 2}));
        else
            EXPECT_EQ(array.ints(), (Dims{1, 2}));
    }
    TensorProto halves;
    halves.set_data_type(TensorProto::FLOAT16);
    halves.add_dims(4);
    for (const int bits : {0x0001, 0x83ff, 0xfc00, 0x7bff}) halves.add_int32_data(bits);
    EXPECT_EQ(convert::arrayOf(halves, {}).floats(), (Floats{0x1p-24F, -1023 * 0x1p-24F, -HUGE_VALF, 65504}));
}

TEST_F(ReadModel, SaysWhatBecomesFloat32) {
    onnx::ModelProto proto = protoOfText(
        "(float[N,2] x) => (float[N,2] y) <float[2] w = {1,2}>"
        "{ c = Constant<value=double[1] {3}>() m = Mul(x, c) y = Mul(m, w) }");
    TensorProto& weights = *proto.mutable_graph()->mutable_initializer(0);
    weights.set_data_type(TensorProto::FLOAT16);
    weights.clear_float_data();
    weights.add_int32_data(0x3c00);
    weights.add_int32_data(0x4000);
    const convert::Model read = model(proto.SerializeAsString());
    EXPECT_EQ(read.remarks,
              (std::vector<std::string>{"1 tensor of float16 becomes float32", "1 tensor of float64 becomes float32"}));
    EXPECT_EQ(read.initializers.at("w").floats(), (Floats{1, 2}));
    EXPECT_EQ(inputsOf(read).at(0).dims, (Dims{-1, 2}));
    EXPECT_EQ(inputsOf(read).at(0).parameters, (std::vector<std::string>{"N", ""}));
}

// Stores w in a file beside the model.
onnx::ModelProto withExternalData(const std::string& location, const std::string& offset, const std::string& length) {
    onnx::ModelProto proto = protoOfText(kGraph);
    TensorProto& weights = *proto.mutable_graph()->mutable_initializer(0);
    weights.clear_float_data();
    weights.set_data_location(TensorProto::EXTERNAL);
    const std::pair<const char*, std::string> kEntries[] = {
        {"location", location}, {"offset", offset}, {"length", length}};
    for (const auto& [key, value] : kEntries) {
        if (value.empty()) continue;
        weights.add_external_data()->set_key(key);
        weights.mutable_external_data()->rbegin()->set_value(value);
    }
    return proto;
}

// Weights and constants of nodes, also below a branch; the data is not looked for in the current directory.
TEST_F(ReadModel, TakesFloatsFromAFileBesideIt) {
    const auto withConstant = [](const std::string& location) {
        const TensorProto stored = withExternalData(location, "4", "8").graph().initializer(0);
        onnx::ModelProto proto = protoOfText(
            "(float[N,2] x) => (float[N,2] y)"
            "{ y = Mul(x, w) z = If<then_branch = t () => () { w = Constant<value=float {0}>() }>(x)"
            "  w = Constant<value=float {0}>() }");
        auto& nodes = *proto.mutable_graph()->mutable_node();
        *nodes[2].mutable_attribute(0)->mutable_t() = stored;
        *nodes[1].mutable_attribute(0)->mutable_g()->mutable_node(0)->mutable_attribute(0)->mutable_t() = stored;
        return proto.SerializeAsString();
    };
    const float kBytes[] = {9, 1, 2};
    write("net/w.bin", std::string(reinterpret_cast<const char*>(kBytes), sizeof kBytes));
    const convert::Model weights = model(withExternalData("w.bin", "4", "8").SerializeAsString());
    EXPECT_EQ(weights.initializers.at("w").floats(), (Floats{1, 2}));
    const convert::Model constants = model(withConstant("w.bin"));
    EXPECT_EQ(constants.initializers.at("w").floats(), (Floats{1, 2}));
    const TensorProto& inner = constants.graph().node(1).attribute(0).g().node(0).attribute(0).t();
    EXPECT_EQ(convert::arrayOf(inner, {}).floats(), (Floats{1, 2}));
    EXPECT_EQ(refusalOf(withConstant("../w.bin")),
              "tensor 'w': external data '../w.bin' is not below the model's folder");
}

TEST_F(ReadModel, RefusesExternalDataThatLies) {
    for (const char* name : {"net/w.bin", "outside.bin"}) write(name, std::string(12, '\0'));
    std::filesystem::create_symlink("../outside.bin", path("net/link.bin"));
    struct Row {
        const char *location, *offset, *length, *text;
    };
    const Row kRows[] = {
        {"", "", "", "external data without a location"},
        {"none.bin", "", "", "external data 'none.bin' is missing: it belongs beside the model"},
        {"../outside.bin", "", "", "external data '../outside.bin' is not below the model's folder"},
        {"link.bin", "", "", "external data 'link.bin' is not below the model's folder"},
        {"/etc/passwd", "", "", "external data '/etc/passwd' is not below the model's folder"},
        {".", "", "", "external data '.' is missing: it belongs beside the model"},
        {"w.bin", "-1", "", "external data: '-1' is not a number of bytes"},
        {"w.bin", "8", "", "external data 'w.bin': needs 8 bytes from byte 8, the file has 12"},
        {"w.bin", "0", "4", "external data 'w.bin': needs 8 bytes from byte 0, the model gives it 4"},
        {"w.bin", "999999999999999999", "8",
         "external data 'w.bin': needs 8 bytes from byte 999999999999999999, the file has 12"},
    };
    for (const Row& row : kRows)
        EXPECT_EQ(refusalOf(withExternalData(row.location, row.offset, row.length).SerializeAsString()),
                  "tensor 'w': " + std::string(row.text));
}

TEST_F(ReadModel, RefusesWhatItCannotUse) {
    const auto changed = [](const std::function<void(onnx::ModelProto&)>& change) {
        onnx::ModelProto proto = protoOfText(kGraph);
        change(proto);
        return proto.SerializeAsString();
    };
    const auto weights = [](onnx::ModelProto& p) -> TensorProto& { return *p.mutable_graph()->mutable_initializer(0); };
    const std::string good = changed([](onnx::ModelProto&) {});
    const std::pair<std::string, const char*> kRows[] = {
        {"", "not an ONNX model"},
        {"CM and something else", "not an ONNX model: a model file of nolk's already"},
        {"version https://git-lfs.github.com",
         "not an ONNX model: a pointer of Git LFS; fetch the file itself with git lfs pull"},
        {"something else", "not an ONNX model, or cut short"},
        {good.substr(0, good.size() - 5), "not an ONNX model, or cut short"},
        {changed([](auto& p) { p.set_ir_version(11); }),
         "IR version 11 is not supported: export with one from 3 to 10"},
        {changed([](auto& p) { p.mutable_opset_import(0)->set_version(22); }),
         "opset 22 is not supported: export with one from 7 to 21"},
        {changed([](auto& p) { p.mutable_opset_import(0)->set_version(6); }),
         "opset 6 is not supported: export with one from 7 to 21"},
        {changed([&](auto& p) { weights(p).set_dims(0, 3); }), "tensor 'w': has 2 values, its dimensions need 3"},
        {changed([&](auto& p) { weights(p).set_dims(0, std::int64_t{1} << 39); }),
         "tensor 'w': has 2 values, its dimensions need 549755813888"},
        {changed([&](auto& p) { weights(p).set_dims(0, -2); }), "tensor 'w': impossible dimensions [-2]"},
        {changed([&](auto& p) {
             weights(p).set_dims(0, std::int64_t{1} << 62);
             weights(p).add_dims(4);
         }),
         "tensor 'w': impossible dimensions [4611686018427387904, 4]"},
        {changed([&](auto& p) { weights(p).set_raw_data("abc"); }), "tensor 'w': has 3 bytes, its dimensions need 8"},
        {changed([&](auto& p) { weights(p).set_data_type(TensorProto::STRING); }),
         "tensor 'w': values of string are not read"},
        {changed([&](auto& p) { weights(p).set_data_type(77); }), "tensor 'w': values of type 77 are not read"},
        {changed([&](auto& p) { *p.mutable_graph()->add_initializer() = weights(p); }), "two tensors are named 'w'"},
        {changed([](auto& p) { p.mutable_graph()->add_sparse_initializer(); }), "sparse weights are not supported"},
    };
    for (const auto& [bytes, text] : kRows) EXPECT_EQ(refusalOf(bytes), text);
    EXPECT_EQ(refusalOf(good), "is read");
}

TEST_F(ReadModel, SaysWhyAFileIsNotOpened) {
    EXPECT_EQ(refusalOfFile(path("none.onnx")), "cannot be opened: No such file or directory");
    EXPECT_EQ(refusalOfFile(path("net")), "cannot be read: Is a directory");
    ASSERT_EQ(mkfifo(path("pipe").c_str(), S_IRUSR | S_IWUSR), 0);
    EXPECT_EQ(refusalOfFile(path("pipe")), "is no regular file");
}

}  // namespace
