// What all commands of the program have in common.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/Program.h"

namespace {

TEST(Program, ErrorsAreOneLineAndNameWhatIsWrong) {
    const std::string commands = "info, run, bench, check or diff";
    expectRefused({}, {{{}, "no command; " + commands + "; see nolk --help", 2},
                       {{"inf", "x.cm"}, "inf: no such command; " + commands, 2},
                       {{"--frobnicate"}, "--frobnicate: no such option; see nolk --help", 2},
                       {{"info", "--frobnicate"}, "--frobnicate: no such option; see nolk info --help", 2},
                       {{"info"}, "MODEL is required", 2},
                       {{"info", "no\nsuch\tfile"}, "no?such?file: no such file"},
                       {{"info", "/"}, "/: is a directory"},
                       {{"check", "/dev/zero"}, "/dev/zero: not a regular file"},
                       {{"bench", "/dev/null"}, "/dev/null: not a regular file"}});
}

TEST(Program, TellsThatAModelIsOnnx) {
    const auto file = [](const std::string& name, const std::string& bytes) {
        return writeTemporary(name, bytes + std::string(90, '\x0a'));
    };
    const std::string onnx[] = {
        file("named.bin",
             "\x08\x07\x12\x07pytorch\x1a\x05"
             "2.1.0:"),
        file("graph.bin", "\x08\x0a:"),
        file("opset.bin",
             "\x08\x03"
             "B"),
        file("any.onnx", "?"),
    };
    for (const std::string& model : onnx)
        for (const auto& arguments : {std::vector<std::string>{"info", model},
                                      {"run", model},
                                      {"bench", model},
                                      {"check", model},
                                      {"diff", model, "x.npy"}}) {
            const ProgramResult r = runProgram(arguments);
            EXPECT_EQ(r.status, 1) << arguments[0];
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err.find("nolk: " + model + ": an ONNX model"), 0u) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        }
    const std::string others[] = {
        file("saved_model.pb", "\x08\x01\x12\x40\x0a\x05"),      // TensorFlow
        file("a.mlmodel", "\x08\x04\x12\x40\x0a\x05image\x1a"),  // Core ML
        file("short.bin", "\x08"),
    };
    for (const std::string& model : others)
        EXPECT_EQ(runProgram({"info", model}).err.find("ONNX"), std::string::npos) << model;
    EXPECT_EQ(runProgram({"check", writeTemporary("digits.onnx", fileText(kDigitsModel))}).status, 0);
}

TEST(Program, HelpAndVersionAreNoErrors) {
    const ProgramResult help = runProgram({"--help"}), version = runProgram({"--version"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out, "");
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "nolk " PROJECT_VERSION " (interface opencv_4.8.0)\n");
    EXPECT_EQ(version.err, "");
}

#ifdef OLD_PROCESSOR  // the command that emulates a processor without AVX2
TEST(Program, SaysOnAnOldProcessorWhatItNeeds) {
    const ProgramResult r = runProgram({"info", kDigitsModel}, OLD_PROCESSOR);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "nolk: this build of nolk needs a processor with AVX2 and FMA\n");
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
    EXPECT_EQ(completed("nolk che"), "check");
    EXPECT_EQ(completed("nolk --ver"), "--version");
    EXPECT_EQ(completed("nolk info --me"), "--memory");
    EXPECT_EQ(completed("nolk info x.cm --batch ''"), "");
    const std::string begin = "'" + file.substr(0, file.size() - 3) + "'";
    EXPECT_EQ(completed("nolk check " + begin), file);
    EXPECT_EQ(completed("nolk info x.cm --dot " + begin), file);
    EXPECT_EQ(completed("nolk info --dot = " + begin), file);
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
