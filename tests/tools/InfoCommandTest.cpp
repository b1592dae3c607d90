// nolk info against the built-in builder, and what it writes to files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "builder/RawRunnerBuilder.h"
#include "support/Program.h"
#include "support/values.h"
#include "inspect/ModelWriterImpl.h"

namespace {

using Json = nlohmann::json;

Json infoJson(const std::string& path, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"info", path, "--json"});
    const ProgramResult r = runProgram(options);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    return Json::parse(r.out, nullptr, false);
}

// Every operation that counts something, two that fusion absorbs in different ways, and two that use a tensor twice.
std::vector<nolk::TensorX*> record(nolk::RunnerBuilder& b) {
    static std::vector<float> values = Values(1).reals(4000);
    float* const f = values.data();
    nolk::TensorX* const x = b.input({1, 4, 6, 5, 3});
    nolk::TensorX* const padded = b.pad(x, {1, 1, 1, 1});
    nolk::TensorX* const y = b.convolve(padded, {0, 0, 0, 0}, {2, 1}, {1, 1}, {2, 3, 2, 3, 3, false, f, f + 40});
    nolk::TensorX* const normal = b.batchNormalize(y, {6, f}, {6, f}, {6, f}, {6, f}, 0.001f);
    nolk::TensorX* const wide = b.deConvolve(normal, {0, 1, 0, 1}, {2, 2}, {1, 1}, {1, 2, 6, 2, 3, false, f, nullptr});
    nolk::TensorX* const square = b.matMul(x, b.transpose(x, {{0, 1, 3, 2}}));
    nolk::TensorX* const steps = b.lstm(b.input({1, 1, 4, 3, 3}), {nolk::Direction::both, 2, 3, 5, f, f, f, true});
    nolk::TensorX* const flat = b.reshape(wide, {1, 132, 1, 1, 1}, nolk::TensorLayout::nhwc);
    nolk::TensorX* parts[] = {x, x};
    return {b.fullConnect(flat, {1, 7, 132, 1, 1, true, f, f}),
            square,
            steps,
            b.concat(parts, 2, nolk::Axis::w),
            b.slice(x, {2, 1, 5, 2}),
            b.avgPool(x, {3, 2}, {0, 1, 1, 0}, {1, 2})};
}

std::string modelFile() {
    nolk::ModelFileOptions options;
    options.headInfo = {{7, {'h', 'i'}}};
    ModelWriterImpl writer(options);
    std::vector<nolk::TensorX*> outputs = record(writer);
    writer.build(outputs.data(), static_cast<int>(outputs.size()));
    return writeTemporary("info.cm", writer.bytes());
}

Json operationCalled(const Json& info, const std::string& name) {
    for (const Json& operation : info["operations"])
        if (operation["operation"] == name) return operation;
    return {};
}

TEST(InfoCommand, ShapesAreTheBuilders) {
    const Json info = infoJson(modelFile());
    RawRunnerBuilder* const builder = new RawRunnerBuilder(nullptr);
    const std::vector<nolk::TensorX*> outputs = record(*builder);
    std::vector<nolk::TensorShape> expected;
    for (const auto& factory : builder->factories()) expected.push_back(factory->output()->shape);
    std::size_t next = 0;
    for (const Json& operation : info["operations"]) {
        if (operation["operation"] == "input") continue;
        ASSERT_LT(next, expected.size());
        const nolk::TensorShape& s = expected[next++];
        EXPECT_EQ(operation["output"], Json({s.n, s.c, s.h, s.w})) << operation;
        EXPECT_EQ(operation["dims"], s.dims) << operation;
    }
    EXPECT_EQ(next, expected.size());
    ASSERT_EQ(info["outputs"].size(), outputs.size());
    EXPECT_EQ(info["outputs"][0]["shape"], Json({1, 7, 1, 1}));
    EXPECT_EQ(info["headInfo"][0]["hex"], "6869");
    builder->destroy();
}

TEST(InfoCommand, CountsFollowTheConvention) {
    const Json info = infoJson(modelFile());
    const struct {
        const char* operation;
        std::int64_t multiplyAdds, parameters;
    } rows[] = {
        {"convolve", 6 * 3 * 5 * 2 * 9, 2 * 3 * 2 * 9 + 6},
        {"deConvolve", 6 * 3 * 5 * 2 * 2 * 3, 6 * 2 * 2 * 3},
        {"matMul", 4 * 6 * 5 * 6, 0},
        {"lstm", 4 * 2 * 4 * 5 * (3 + 5), 2 * 4 * 5 * (3 + 5) + 2 * 8 * 5},
        {"fullConnect", 7 * 132, 7 * 132 + 7},
        {"batchNormalize", 0, 24},
        {"avgPool", 0, 0},
    };
    for (const auto& row : rows) {
        const Json operation = operationCalled(info, row.operation);
        EXPECT_EQ(operation["multiplyAdds"], row.multiplyAdds) << row.operation;
        EXPECT_EQ(operation["parameters"], row.parameters) << row.operation;
    }
    // Twice the samples, twice the work.
    const Json two = infoJson(modelFile(), {"--batch", "2"});
    EXPECT_EQ(two["totals"]["multiplyAdds"]["beforeFusion"].get<std::int64_t>(),
              2 * info["totals"]["multiplyAdds"]["beforeFusion"].get<std::int64_t>());
    // Twelve plain arrays, with a byte each that says so.
    EXPECT_EQ(info["totals"]["weightBytesInFile"],
              4 * info["totals"]["parameters"]["beforeFusion"].get<std::int64_t>() + 12);
}

TEST(InfoCommand, FusedOperationsNameTheLayerThatTookThem) {
    const Json info = infoJson(modelFile());
    const Json layer = operationCalled(info, "convolve")["layer"];
    EXPECT_FALSE(layer.is_null());
    for (const char* absorbed : {"pad", "batchNormalize"}) {
        EXPECT_EQ(operationCalled(info, absorbed)["layer"], layer) << absorbed;
        EXPECT_EQ(operationCalled(info, absorbed)["fused"], true) << absorbed;
    }
    EXPECT_EQ(info["totals"]["operations"]["beforeFusion"], 12);
    EXPECT_EQ(info["totals"]["operations"]["afterFusion"], 10);
    EXPECT_EQ(info["layers"].size(), 10u);
    EXPECT_EQ(info["layers"][0]["kind"], "conv");
}

TEST(InfoCommand, PicturesAreWrittenAndTextTellsTheSame) {
    const std::string dot = temporaryPath("graph.dot"), memory = temporaryPath("arena.svg");
    const ProgramResult r = runProgram({"info", kDigitsModel, "--dot", dot, "--memory", memory});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("#2  convolve        3x3, pad 1     #1      [1, 16, 28, 28]"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("arena: 65,856 bytes"), std::string::npos) << r.out;
    EXPECT_NE(fileText(dot).find("r0 -> r1 [label=\" [1, 1, 28, 28]\"]"), std::string::npos);
    const std::string svg = fileText(memory);
    EXPECT_NE(svg.find("<title>convolve #2, relu #4\n[1, 16, 28, 28]"), std::string::npos) << svg;
    EXPECT_EQ(runProgram({"info", kDigitsModel, "--memory", "-"}).out, svg);
}

TEST(InfoCommand, FailuresAreOneLineThatNamesTheFile) {
    const std::string model = modelFile();
    const std::string truncated = writeTemporary("truncated.cm", fileText(kDigitsModel).substr(0, 50000));
    const struct {
        std::vector<std::string> arguments;
        std::string line;
        int status = 1;
    } rows[] = {
        {{"info", "no-such.cm"}, "nolk: no-such.cm: no such file\n"},
        {{"info", truncated},
         "nolk: " + truncated + ": checksum at byte 49996: error: it is not that of the bytes before it\n"},
        {{"info", model, "--dot", "/no/such/folder/x"},
         "nolk: /no/such/folder/x: cannot be written: No such file or directory\n"},
        {{"info", model, "--dot", ""}, "nolk: --dot: a file's name, is empty\n", 2},
        {{"info", model, "--dot", "-", "--memory", "-"},
         "nolk: only one of --dot, --svg and --memory can go to standard output\n",
         2},
        {{"info", model, "--dot", "-", "--json"}, "nolk: a graph or picture and --json both want standard output\n", 2},
        {{"info", model, "--batch", "2x"}, "nolk: --batch: a whole number from 1 to 1048576, is 2x\n", 2},
    };
    for (const auto& row : rows) {
        const ProgramResult r = runProgram(row.arguments);
        EXPECT_EQ(r.status, row.status);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, row.line);
    }
}

TEST(InfoCommand, WithoutDotThePackageIsNamed) {
    if (*EMULATOR) GTEST_SKIP() << "the emulator is found by PATH too";
    const std::string path = std::getenv("PATH");
    setenv("PATH", "/no/such/folder", 1);
    const ProgramResult r = runProgram({"info", kDigitsModel, "--svg", temporaryPath("graph.svg")});
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "nolk: dot: not found; it is in the package graphviz\n");
}

}  // namespace
