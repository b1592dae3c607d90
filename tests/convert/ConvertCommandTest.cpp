// nolk-convert as a user runs it: exit status, files, and what it says.
#include "convert/convertCommand.h"

#include <gtest/gtest.h>
#include <nolk_model.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "convert/onnxText.h"

namespace {

namespace fs = std::filesystem;

// A folder of its own, with what is written into it.
class ConvertCommand : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(folder_); }
    void TearDown() override { fs::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }

    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }

    std::string modelFile(const std::string& graph) const {
        return write("net.onnx", modelOfText(graph).proto.SerializeAsString());
    }

    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // The exit status; what went to standard error stays in errors_.
    int run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "nolk-convert");
        std::vector<char*> pointers;
        for (std::string& argument : arguments) pointers.push_back(argument.data());
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = convert::convertCommand(static_cast<int>(pointers.size()), pointers.data());
        errors_ = testing::internal::GetCapturedStderr();
        testing::internal::GetCapturedStdout();
        return status;
    }

    std::size_t filesInFolder() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
    }

    fs::path folder_ = fs::temp_directory_path() / ("nolk-convert-test-" + std::to_string(getpid()));
    std::string errors_;
};

TEST_F(ConvertCommand, NamesInputsAndOutputsInTheFile) {
    const std::string in = modelFile("(float[N,3,4,5] image) => (float[N,3,4,5] scores) { scores = Relu(image) }");
    ASSERT_EQ(run({in, path("net.cm"), "--report", path("report.json")}), 0) << errors_;
    const std::string file = read("net.cm");
    const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size());
    EXPECT_EQ(info.inputNames, std::vector<std::string>{"image"});
    EXPECT_EQ(info.outputNames, std::vector<std::string>{"scores"});
    const auto report = nlohmann::json::parse(read("report.json"));
    EXPECT_EQ(report["converted"], true);
    EXPECT_EQ(report["check"]["outputs"][0]["name"], "scores");
}

TEST_F(ConvertCommand, WritesAFileOfEveryVersion) {
    const std::string in = modelFile("(float[N,3,4,5] x) => (float[N,3,4,5] y) { y = Sigmoid(x) }");
    for (const char* version : {"1", "2", "3", "4"}) {
        ASSERT_EQ(run({in, path("net.cm"), "--version", version}), 0) << errors_;
        const std::string file = read("net.cm");
        EXPECT_EQ(std::to_string(nolk::inspectModel(file.data(), file.size()).version), version);
    }
}

TEST_F(ConvertCommand, NamesEveryNodeAndLeavesTheOutputAlone) {
    const std::string in = modelFile(
        "(float[N,3,4,5] x) => (float[N,3,4,5] y) { a = Sin(x) b = Relu(a) c = Cos(b) d = Det(x) e = Add(c, d) y = "
        "Floor(e) }");
    write("net.cm", "what was there");
    EXPECT_EQ(run({in, path("net.cm")}), 1);
    for (const char* type : {"(Sin)", "(Cos)", "(Det)", "(Floor)"})
        EXPECT_NE(errors_.find(type), std::string::npos) << type;
    EXPECT_EQ(errors_.find("(Relu)"), std::string::npos);
    EXPECT_EQ(read("net.cm"), "what was there");
    EXPECT_EQ(filesInFolder(), 2U);
}

TEST_F(ConvertCommand, TellsWrongUsageFromFailure) {
    const std::string in = modelFile("(float[N,3,H,5] x) => (float[N,3,H,5] y) { y = Relu(x) }");
    EXPECT_EQ(run({}), 2);
    EXPECT_EQ(run({in, path("net.cm"), "--shape", "x"}), 2);
    EXPECT_EQ(run({in, path("net.cm"), "--version", "5"}), 2);
    EXPECT_EQ(run({in, path("net.cm")}), 1);
    EXPECT_NE(errors_.find("--shape x=1,3,N,5"), std::string::npos) << errors_;
    EXPECT_EQ(run({path("nothing.onnx"), path("net.cm")}), 1);
    EXPECT_EQ(run({in, path("net.cm"), "--shape", "x=1,3,4,5"}), 0) << errors_;
}

}  // namespace
