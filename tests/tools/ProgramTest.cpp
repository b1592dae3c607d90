// What all commands of the program have in common.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/Program.h"

namespace {

TEST(Program, ErrorsAreOneLineAndNameWhatIsWrong) {
    const std::string commands = "info, run, bench, check, diff or convert";
    const std::string large = writeTemporary("large.cm", std::string("CM"));
    std::filesystem::resize_file(large, 2147483648);  // a hole that takes no room
    expectRefused({}, {{{}, "no command; " + commands + "; see nolk --help", 2},
                       {{"inf", "x.cm"}, "inf: no such command; " + commands, 2},
                       {{"--frobnicate"}, "--frobnicate: no such option; see nolk --help", 2},
                       {{"info", "--frobnicate"}, "--frobnicate: no such option; see nolk info --help", 2},
                       {{"info"}, "MODEL is required", 2},
                       {{"info", "no\nsuch\tfile"}, "no?such?file: no such file"},
                       {{"info", "/"}, "/: is a directory"},
                       {{"check", "/dev/zero"}, "/dev/zero: not a regular file"},
                       {{"bench", "/dev/null"}, "/dev/null: not a regular file"},
                       {{"info", large}, large + ": larger than 2 GiB, so it is no model file"}});
}

TEST(Program, NoCommandRunsAnOperationThatMeansNothing) {
    const std::string model = modelFile("softmax.cm", [](nolk::RunnerBuilder& b) {
        return Outputs{b.softmax(b.input({1, 1, 2, 2, 3}), static_cast<nolk::Axis>(0))};
    });
    const std::string in = writeTemporary("in.raw", rawFloats({1, 2, 3, 4})),
                      error = model + ": record 2 (softmax): axis";
    for (const auto& arguments : {std::vector<std::string>{"run", model, "--input", in},
                                  {"bench", model, "--runs", "1"},
                                  {"diff", model, in, "--input", in}})
        expectOneError(runProgram(arguments), error);
}

TEST(Program, TellsThatAModelIsOnnx) {
    const struct {
        std::string name, begin;
        bool isOnnx;
    } rows[] = {
        {"named.bin",
         "\x08\x07\x12\x07pytorch\x1a\x05"
         "2.1.0:",
         true},
        {"graph.bin", "\x08\x0a:", true},
        {"opset.bin",
         "\x08\x03"
         "B",
         true},
        {"any.onnx", "?", true},
        {"saved_model.pb", "\x08\x01\x12\x40\x0a\x05", false},      // TensorFlow
        {"a.mlmodel", "\x08\x04\x12\x40\x0a\x05image\x1a", false},  // Core ML
        {"short.bin", "\x08", false},
    };
    std::string model;
    for (const auto& row : rows) {
        model = writeTemporary(row.name, row.begin + std::string(90, '\x0a'));
        const ProgramResult r = runProgram({"info", model});
        EXPECT_EQ(r.err.find("nolk: " + model + ": an ONNX model") == 0, row.isOnnx) << row.name << r.err;
    }
    model = temporaryPath("any.onnx");
    for (const auto& arguments :
         {std::vector<std::string>{"run", model}, {"bench", model}, {"check", model}, {"diff", model, "x.npy"}})
        expectOneError(runProgram(arguments), model + ": an ONNX model");
    EXPECT_EQ(runProgram({"check", writeTemporary("digits.onnx", fileText(kDigitsModel))}).status, 0);
}

TEST(Program, HelpAndVersionAreNoErrors) {
    const ProgramResult help = runProgram({"--help"}), version = runProgram({"--version"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out, "");
    EXPECT_EQ(help.err + version.err, "");
    EXPECT_EQ(version.out, "nolk " PROJECT_VERSION " (interface opencv_4.8.0)\n");
}

#ifdef OLD_PROCESSOR  // the command that emulates a processor without AVX2
TEST(Program, SaysOnAnOldProcessorWhatItNeeds) {
    expectOneError(runProgram({"info", kDigitsModel}, OLD_PROCESSOR),
                   "this build of nolk needs a processor with AVX2 and FMA\n");
}
#endif

// What the completion's function offers, with the cursor behind the last word.
std::string completed(const std::string& words) {
    const std::string script = writeTemporary("completion.bash", runProgram({"completion"}).out);
    const ProgramResult r =
        runCommand({"bash", "-c",
                    "source " + script + "; COMP_WORDS=(" + words +
                        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _nolk; echo -n \"${COMPREPLY[@]}\""});
    EXPECT_EQ(r.err, "");
    return r.out;
}

TEST(Program, CompletesCommandsOptionsAndFiles) {
    const std::string file = writeTemporary("a file.cm", std::string());
    const std::string begin = "'" + file.substr(0, file.size() - 3) + "'";
    for (const auto& [words, offered] : {std::pair<std::string, std::string>{"che", "check"},
                                         {"--ver", "--version"},
                                         {"info --me", "--memory"},
                                         {"info x.cm --batch ''", ""},
                                         {"check " + begin, file},
                                         {"info --dot = " + begin, file}})
        EXPECT_EQ(completed("nolk " + words), offered) << words;
}

TEST(Program, ManualHasEveryCommandAndOption) {
    const std::string manual = runProgram({"manual"}).out;
    std::istringstream commands(completed("nolk ''"));
    int found = 0;
    for (std::string command; commands >> command;) {
        if (command[0] == '-') continue;
        EXPECT_NE(manual.find(".SS \\fB" + command + "\\fR\n"), std::string::npos) << command;
        std::istringstream options(completed("nolk " + command + " -"));
        for (std::string option; options >> option; ++found) {
            std::string escaped;
            for (const char c : option) escaped += c == '-' ? "\\-" : std::string(1, c);
            EXPECT_NE(manual.find("\\fB" + escaped + "\\fR"), std::string::npos) << command << " " << option;
        }
    }
    EXPECT_GT(found, 5);
}

}  // namespace
