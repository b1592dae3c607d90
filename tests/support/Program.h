// The program as a user runs it: arguments in; exit status, standard output and standard error out.
//   const ProgramResult r = runProgram({"info", kDigitsModel});  EXPECT_EQ(r.status, 0) << r.err;
// Built for another machine it runs through EMULATOR. Files that a test needs lie under temporaryPath; modelFile
// records a model.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nolk_model.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

inline const std::string kDigitsModel = DIGITS_FOLDER "/digits.cm";

struct ProgramResult {
    int status = -1;  // -1: it did not start, or a signal ended it
    std::string out;
    std::string err;
};

// Of this process alone: tests run side by side.
inline std::string temporaryPath(const std::string& name) {
    return ::testing::TempDir() + "nolk-program-" + std::to_string(getpid()) + "-" + name;
}

inline std::string fileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <typename Bytes>
std::string writeTemporary(const std::string& name, const Bytes& bytes) {
    std::string path = temporaryPath(name);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
}

// Runs any command with standard input empty; its path is searched for as a shell would.
inline ProgramResult runCommand(std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const std::string out = temporaryPath("stdout"), err = temporaryPath("stderr");
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ProgramResult result;
    pid_t child = 0;
    int status = 0;
    if (posix_spawnp(&child, argv[0], &files, nullptr, argv.data(), environ) == 0 &&
        waitpid(child, &status, 0) == child && WIFEXITED(status))
        result.status = WEXITSTATUS(status);
    posix_spawn_file_actions_destroy(&files);
    result.out = fileText(out);
    result.err = fileText(err);
    std::remove(out.c_str());
    std::remove(err.c_str());
    return result;
}

inline ProgramResult runProgram(const std::vector<std::string>& arguments, const std::string& emulator = EMULATOR) {
    std::istringstream emulatorWords(emulator);
    std::vector<std::string> words{std::istream_iterator<std::string>(emulatorWords), {}};
    words.push_back(PROGRAM);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return runCommand(words);
}

// One line of error that begins with `begin` and has `wish` in it, and no output.
inline void expectOneError(const ProgramResult& r, const std::string& begin, const std::string& wish = "") {
    EXPECT_EQ(r.status, 1) << wish;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.find("nolk: " + begin), 0u) << r.err;
    EXPECT_NE(r.err.find(wish), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
}

struct Refused {
    std::vector<std::string> arguments;
    std::string error;
    int status = 1;
};

// Each row's arguments behind `begin`: one line of error, and no output.
inline void expectRefused(const std::vector<std::string>& begin, const std::vector<Refused>& rows) {
    for (const Refused& row : rows) {
        std::vector<std::string> arguments = begin;
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const ProgramResult r = runProgram(arguments);
        EXPECT_EQ(r.status, row.status) << row.error;
        EXPECT_EQ(r.err, "nolk: " + row.error + "\n");
        EXPECT_EQ(r.out, "");
    }
}

using Outputs = std::vector<nolk::TensorX*>;

// The path of a model file with the operations that `record` makes; it returns the outputs.
inline std::string modelFile(const std::string& name, const std::function<Outputs(nolk::RunnerBuilder&)>& record,
                             const nolk::ModelFileOptions& options = {}) {
    const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter(options);
    Outputs outputs = record(*writer);
    writer->build(outputs.data(), static_cast<int>(outputs.size()));
    return writeTemporary(name, writer->bytes());
}

// Little-endian floats without a head.
inline std::string rawFloats(const std::vector<float>& values) {
    return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(float)};
}
