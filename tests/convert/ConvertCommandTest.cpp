// nolk-convert as a user runs it: exit status, files, and what it says.
#include "convert/convertCommand.h"

#include <gtest/gtest.h>
#include <nolk_model.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "convert/onnxText.h"

namespace {

class ConvertCommand : public InFolder {
protected:
    std::string modelFile(const std::string& graph) const {
        return write("net.onnx", protoOfText(graph).SerializeAsString());
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

    std::ptrdiff_t filesInFolder() const {
        using Files = std::filesystem::directory_iterator;
        return std::distance(Files(folder_), Files()) - 1;  // without the folder in it
    }
    nlohmann::json report() const { return nlohmann::json::parse(read("report.json")); }

    std::string errors_;
};

TEST_F(ConvertCommand, NamesInputsAndOutputsInTheFile) {
    const std::string in = modelFile("(float[N,3,4,5] image) => (float[N,3,4,5] scores) { scores = Relu(image) }");
    ASSERT_EQ(run({in, path("net.cm"), "--report", path("report.json")}), 0) << errors_;
    const std::string file = read("net.cm");
    const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size());
    EXPECT_EQ(info.inputNames, std::vector<std::string>{"image"});
    EXPECT_EQ(info.outputNames, std::vector<std::string>{"scores"});
    EXPECT_EQ(report()["converted"], true);
    EXPECT_EQ(report()["check"]["outputs"][0]["name"], "scores");
}

TEST_F(ConvertCommand, NamesEveryNodeAndLeavesTheOutputAlone) {
    const std::string in = modelFile(
        "(float[N,3,4,5] x) => (float[N,3,4,5] y) { a = Sin(x) b = Relu(a) c = Cos(b) d = Det(x) e = Conv(b, c) "
        "f = Sum(d, e) y = Floor(f) }");
    write("net.cm", "what was there");
    EXPECT_EQ(run({in, path("net.cm")}), 1);
    for (const char* type : {"5 nodes", "(Sin)", "(Cos)", "(Det)", "(Conv)", "(Floor)"})
        EXPECT_NE(errors_.find(type), std::string::npos) << type;
    EXPECT_EQ(errors_.find("(Relu)"), std::string::npos);
    EXPECT_EQ(read("net.cm"), "what was there");
    EXPECT_EQ(filesInFolder(), 2);
}

TEST_F(ConvertCommand, TellsWrongUsageFromFailure) {
    const std::string in = modelFile("(float[N,3,H,5] x) => (float[N,3,H,5] y) { y = Relu(x) }");
    const std::string out = path("net.cm"), shape = "x=1,3,4,5", pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* text;  // a part of what is said
    };
    const Case kCases[] = {
        {{}, 2, "IN.onnx is required"},
        {{in, out, "--verison", "3"}, 2, "--verison: no such option; see nolk-convert --help"},
        {{in, out, "--version", "5"}, 2, "5 is no version of a model file: expected 1, 2, 3 or 4"},
        {{in, out, "--report"}, 2, "--report: its value is missing"},
        {{in, "--report", out}, 2, "OUT.cm is required; --report has taken"},
        {{in, out, "--lossy", "--version", "3"}, 2, "--lossy needs version 4 of the model file"},
        {{in, out, "--shape", "x"}, 2, "--shape x: expected NAME=1,3,320,320"},
        {{in, out, "--shape", shape, shape}, 2, "this input has a shape already"},
        {{in, out, "--check-input", "x.npy", "--no-check"}, 2, "--check-input has no use with --no-check"},
        {{in, out, "--shape", shape, "--check-input", "x.npy", "y.npy"}, 1, "x.npy: cannot be opened"},
        {{in, out, "--shape", shape, "--check-input", pipe}, 1, "pipe: is no regular file"},
        {{in, out, "--shape", shape, "--check-input", folder_.string()}, 1, ": cannot be read"},
        {{in, in}, 2, "is the ONNX file itself"},
        {{in, out, "--report", out}, 2, "is one of the other two files"},
        {{in, out, "--report", "x.npy", "--check-input", "x=x.npy"}, 2, "would overwrite what is read as x=x.npy"},
        {{in, path("no/net.cm")}, 1, "net.cm: cannot be written: No such file or directory"},
        {{in, folder_.string()}, 1, ": cannot be written: Is a directory"},
        {{in, out}, 1, "--shape x=1,3,N,5"},
        {{path("nothing.onnx"), out}, 1, "nothing.onnx: cannot be opened"},
    };
    for (const Case& c : kCases) {
        EXPECT_EQ(run(c.arguments), c.status) << c.text;
        EXPECT_NE(errors_.find(c.text), std::string::npos) << errors_;
    }
    EXPECT_EQ(filesInFolder(), 2);
    EXPECT_EQ(run({in, out, "--shape", shape}), 0) << errors_;
}

TEST_F(ConvertCommand, LeavesTheModelsWeightsAlone) {
    onnx::ModelProto proto = protoOfText("(float[N,2] x) => (float[N,2] y) <float[2] w = {1,2}> { y = Mul(x, w) }");
    onnx::TensorProto& weights = *proto.mutable_graph()->mutable_initializer(0);
    weights.clear_float_data();
    weights.set_data_location(onnx::TensorProto::EXTERNAL);
    auto& location = *weights.add_external_data();
    location.set_key("location");
    location.set_value("w.bin");
    const std::string in = write("net.onnx", proto.SerializeAsString()), bytes = "12345678";
    write("w.bin", bytes);
    EXPECT_EQ(run({in, path("w.bin")}), 2);
    EXPECT_NE(errors_.find("would overwrite what is read as the model's weights"), std::string::npos) << errors_;
    EXPECT_EQ(read("w.bin"), bytes);
}

// The Reshape mixes samples without a trace in the extents.
TEST_F(ConvertCommand, KeepsAFixedBatchThatTheCheckFindsJoined) {
    const std::string in = modelFile(
        "(float[4,2,3] x) => (float[4,2,3] y) <int64[3] s = {-1,2,3}>"
        "{ t = Transpose<perm=[1,0,2]>(x) y = Reshape(t, s) }");
    ASSERT_EQ(run({in, path("net.cm"), "--report", path("report.json")}), 0) << errors_;
    EXPECT_EQ(report()["inputs"][0]["shape"], nlohmann::json({4, 2, 3}));
    EXPECT_EQ(report()["check"]["passed"], true);
}

TEST_F(ConvertCommand, RefusesChecksThatTakeTooMuchMemory) {
    const std::string in = modelFile("(float[1,3,8000,8000] x) => (float[1,3,8000,8000] y) { y = Relu(x) }");
    EXPECT_EQ(run({in, path("net.cm")}), 1);
    EXPECT_NE(errors_.find("checking needs more than 768 MiB of memory: leave the check out by --no-check"),
              std::string::npos)
        << errors_;
    EXPECT_FALSE(std::filesystem::exists(path("net.cm")));
    EXPECT_EQ(run({in, path("net.cm"), "--no-check"}), 0) << errors_;
}

// The loss is no excuse for a file that is wrong, and is measured.
TEST_F(ConvertCommand, ChecksLossyFilesToo) {
    const std::string in = write("net.onnx", withWeights(protoOfText("(float[N,8,6,6] x) => (float[N,64,6,6] y)"
                                                                     "<float[64,8,3,3] w = {0}>"
                                                                     "{ y = Conv<pads=[1,1,1,1]>(x, w) }"))
                                                 .SerializeAsString());
    ASSERT_EQ(run({in, path("net.cm"), "--lossy", "--report", path("report.json")}), 0) << errors_;
    const double difference = report()["check"]["outputs"][0]["relative"];
    EXPECT_LT(difference, 0.1);
}

TEST_F(ConvertCommand, ReportsAFileThatCannotBeRead) {
    const std::string good = modelFile("(float[N,2] x) => (float[N,2] y) { y = Relu(x) }"), bad = write("bad", "bad");
    const auto errorOf = [&](const std::vector<std::string>& arguments) -> std::string {
        EXPECT_EQ(run(arguments), 1);
        EXPECT_EQ(report()["converted"], false);
        return report()["error"];
    };
    EXPECT_EQ(errorOf({bad, path("net.cm"), "--report", path("report.json")}),
              bad + ": not an ONNX model, or cut short");
    EXPECT_EQ(errorOf({good, path("net.cm"), "--report", path("report.json"), "--check-input", bad}),
              "--check-input " + bad + ": not an npy file");
}

// Whatever of the model does not go into the file, or is read in another way than it says.
TEST_F(ConvertCommand, RemarksOnWhatIsLeftOut) {
    onnx::ModelProto proto = protoOfText("(float[4,3] x, float[4,2] u) => (float[4,3] y) { y = Relu(x) }");
    for (int i = 0; i < 257; ++i) proto.add_metadata_props()->set_key(std::to_string(i));
    const std::string longName(32768, 'y');
    proto.mutable_graph()->mutable_node(0)->set_output(0, longName);
    proto.mutable_graph()->mutable_output(0)->set_name(longName);
    const std::string in = write("net.onnx", proto.SerializeAsString());
    const auto remarksOf = [&](std::vector<std::string> options) -> nlohmann::json {
        options.insert(options.begin(), {in, path("net.cm"), "--report", path("report.json")});
        EXPECT_EQ(run(options), 0) << errors_;
        return report()["remarks"];
    };
    const std::string unused = "no output depends on the values of input 'u': the file has no such input";
    EXPECT_EQ(remarksOf({}),
              nlohmann::json({unused, "the batch of 4 is free in the file, which takes any",
                              "the names of outputs are left out: one has more than 32767 bytes",
                              "1 of 257 metadata_props are left out: the file takes 256, of up to 32767 bytes"}));
    EXPECT_EQ(remarksOf({"--version", "1", "--shape", "x=1,5", "u=1,2"}),
              nlohmann::json({"input 'x': --shape gives [1, 5], though the model has fixed extent 0 to 4",
                              "input 'u': --shape gives [1, 2], though the model has fixed extent 0 to 4", unused,
                              "a file of version 1 has no place for names and metadata: they are left out"}));
}

}  // namespace
