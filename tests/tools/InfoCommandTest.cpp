// nolk info against the built-in builder, and what it writes to files.
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "support/Program.h"
#include "support/values.h"

namespace {

using Json = nlohmann::json;

Json infoJson(const std::string& path) {
    const ProgramResult r = runProgram({"info", path, "--json"});
    EXPECT_EQ(r.status, 0) << r.err;
    return Json::parse(r.out, nullptr, false);
}

// Every operation that counts something, two that fusion absorbs in different ways, and two that use a tensor twice.
Outputs record(nolk::RunnerBuilder& b) {
    static std::vector<float> values = Values(1).reals(4000);
    float* const f = values.data();
    nolk::TensorX* const x = b.input({1, 4, 6, 5, 3});
    nolk::TensorX* const padded = b.pad(x, {1, 1, 1, 1});
    nolk::TensorX* const y = b.convolve(padded, {0, 0, 0, 0}, {2, 1}, {1, 1}, {2, 3, 2, 3, 3, false, f, f + 40});
    nolk::TensorX* const normal = b.batchNormalize(y, {6, f}, {6, f}, {6, f}, {6, f}, 0.001f);
    nolk::TensorX* const wide = b.deConvolve(normal, {0, 1, 0, 1}, {2, 2}, {1, 1}, {1, 2, 6, 2, 3, false, f, nullptr});
    nolk::TensorX* const square = b.matMul(x, b.transpose(x, {{0, 1, 3, 2}}));
    nolk::TensorX* const steps = b.lstm(b.input({1, 1, 4, 3, 3}), {nolk::Direction::both, 2, 3, 5, f, f, f, true});
    nolk::TensorX* const flat = b.reshape(wide, {1, 100, 1, 1, 1}, nolk::TensorLayout::nhwc);
    nolk::TensorX* const connected = b.fullConnect(flat, {1, 7, 100, 1, 1, true, f, f});
    nolk::TensorX* parts[] = {x, x};
    // Weights for more channels than there are, and groups.
    return {b.fullConnect(b.fullConnect(connected, {1, 12, 10, 1, 1, true, f, nullptr}), {4, 5, 3, 1, 1, true, f, f}),
            square,
            steps,
            b.concat(parts, 2, nolk::Axis::w),
            b.slice(x, {2, 1, 5, 2}),
            b.avgPool(x, {3, 2}, {0, 1, 1, 0}, {1, 2})};
}

std::string recordedModel() { return modelFile("info.cm", record, {4, false, {{7, {'h', 'i'}}}}); }

Json operationCalled(const Json& info, const std::string& name, int skip = 0) {
    for (const Json& operation : info["operations"])
        if (operation["operation"] == name && skip-- == 0) return operation;
    return {};
}

TEST(InfoCommand, ShapesAndCountsAreTheBuilders) {
    const Json info = infoJson(recordedModel());
    const nolk::Owned<nolk::RunnerBuilder> builder(nolk_new_runner_builder(nullptr));
    const Outputs outputs = record(*builder);
    ASSERT_EQ(info["outputs"].size(), outputs.size());
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const nolk::TensorShape s = builder->shapeOf(outputs[i]);
        EXPECT_EQ(info["outputs"][i]["shape"], Json({s.n, s.c, s.h, s.w})) << i;
        EXPECT_EQ(info["outputs"][i]["dims"], s.dims) << i;
    }
    EXPECT_EQ(info["headInfo"][0]["hex"], "6869");
    const struct {
        const char* operation;
        int place;
        std::int64_t multiplyAdds, parameters;
    } rows[] = {
        {"convolve", 0, 6 * 3 * 5 * 2 * 9, 2 * 3 * 2 * 9 + 6},
        {"deConvolve", 0, 6 * 3 * 5 * 2 * 2 * 3, 6 * 2 * 2 * 3},
        {"matMul", 0, 4 * 6 * 5 * 6, 0},
        {"lstm", 0, 4 * 2 * 4 * 5 * (3 + 5), 2 * 4 * 5 * (3 + 5) + 2 * 8 * 5},
        {"fullConnect", 0, 7 * 100, 7 * 100 + 7},
        {"fullConnect", 1, 12 * 7, 12 * 10},
        {"fullConnect", 2, 5 * 12, 5 * 3 + 5},
        {"batchNormalize", 0, 0, 24},
    };
    for (const auto& row : rows) {
        const Json operation = operationCalled(info, row.operation, row.place);
        EXPECT_EQ(operation["multiplyAdds"], row.multiplyAdds) << row.operation;
        EXPECT_EQ(operation["parameters"], row.parameters) << row.operation;
    }
    const Json layer = operationCalled(info, "convolve")["layer"];
    EXPECT_FALSE(layer.is_null());
    for (const char* absorbed : {"pad", "batchNormalize"}) EXPECT_EQ(operationCalled(info, absorbed)["layer"], layer);
    EXPECT_EQ(info["totals"]["operations"], Json({{"beforeFusion", 14}, {"afterFusion", 12}}));
    EXPECT_EQ(info["layers"][0]["kind"], "conv");
    EXPECT_EQ(operationCalled(info, "avgPool")["settings"][0], Json({{"name", "kernel"}, {"values", {3, 2}}}));
    // Fifteen plain arrays, with a byte each that says so.
    EXPECT_EQ(info["totals"]["weightBytesInFile"],
              4 * info["totals"]["parameters"]["beforeFusion"].get<std::int64_t>() + 15);
}

TEST(InfoCommand, DrawingsAreWrittenAndTextTellsTheSame) {
    const std::string dot = temporaryPath("graph.dot"), memory = temporaryPath("memory.svg");
    const ProgramResult r = runProgram({"info", kDigitsModel, "--dot", dot, "--memory", memory});
    EXPECT_EQ(r.status, 0) << r.err;
    const std::string svg = fileText(memory);
    for (const char* text : {"#2  convolve        3x3, pad 1     #1      [1, 16, 28, 28]", "arena: 65,856 bytes"})
        EXPECT_NE(r.out.find(text), std::string::npos) << r.out;
    EXPECT_NE(svg.find("<title>convolve #2, relu #4\n[1, 16, 28, 28]"), std::string::npos) << svg;
    EXPECT_NE(fileText(dot).find("r0 -> r1 [label=\" [1, 1, 28, 28]\"]"), std::string::npos);
    EXPECT_EQ(runProgram({"info", kDigitsModel, "--memory", "-"}).out, svg);
}

TEST(InfoCommand, CallsHeadInfoByItsMeaning) {
    const auto bytes = [](const std::string& text) { return std::vector<unsigned char>(text.begin(), text.end()); };
    const std::string model = modelFile("named.cm",
                                        [](nolk::RunnerBuilder& b) {
                                            return Outputs{b.relu(b.input({1, 4, 1, 1, 1}))};
                                        },
                                        {4,
                                         false,
                                         {{1, bytes("image")},
                                          {2, bytes("\xC3\xA9\xFF\xC2\x9B\x1B.")},
                                          {3, bytes("a trainer 1.0")},
                                          {4, bytes(std::string("licence\0free", 12))},
                                          {300, bytes("x")}}});
    const std::string text = runProgram({"info", model}).out;
    for (const char* line :
         {"  input name: \"image\"\n", "\noutput 0 \"\xC3\xA9???.\": ", "  made by: \"a trainer 1.0\"\n",
          "  note \"licence\": \"free\"\n", "  key 300, 1 byte: \"x\"\n"})
        EXPECT_NE(text.find(line), std::string::npos) << text;
}

TEST(InfoCommand, FailuresAreOneLineThatNamesTheFile) {
    const std::string cut = writeTemporary("cut.cm", fileText(kDigitsModel).substr(0, 50000));
    const std::string model = kDigitsModel;
    expectRefused(
        {"info"},
        {{{cut}, cut + ": checksum at byte 49996: error: it is not that of the bytes before it"},
         {{model, "--dot", "/no/such/folder/x"}, "/no/such/folder/x: cannot be written: No such file or directory"},
         {{model, "--dot", "-", "--memory", "-"}, "only one of --dot, --svg and --memory can go to standard output", 2},
         {{model, "--dot", "-", "--json"}, "a drawing and --json both want standard output", 2},
         {{model, "--batch", "2x"}, "--batch: a whole number from 1 to 1048576, is 2x", 2}});
    if (*EMULATOR) return;  // which is found by PATH too
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/no/such/folder", 1);
    expectRefused({"info", model, "--svg", temporaryPath("graph.svg")},
                  {{{}, "dot: not found; it is in the package graphviz"}});
    setenv("PATH", path.c_str(), 1);
}

TEST(InfoCommand, ANetworkThatIsTooLargeIsDescribedButNotBuilt) {
    const std::string huge = modelFile("huge.cm", [](nolk::RunnerBuilder& b) {
        return Outputs{b.input({1, 9000, 900, 900, 3})};
    });
    const std::string remark = infoJson(huge)["remark"];
    EXPECT_EQ(remark.find("not built: it needs "), 0u) << remark;
    expectRefused({"info", huge}, {{{"--memory", "-"}, huge + ": " + remark}});
}

}  // namespace
