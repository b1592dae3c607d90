#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "nolk/commands.h"

// Replaces this process by nolk-convert: the one in this program's folder, or the one that the path leads to.
int startConverter(char** arguments) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    std::string name = "nolk-convert";
    arguments[0] = name.data();
    for (const char* folder : {"", "convert"}) {  // where both are installed, and where they are built
        const std::string neighbour = (self.parent_path() / folder / name).string();
        if (!error) execv(neighbour.c_str(), arguments);
    }
    execvp(name.c_str(), arguments);
    std::fputs("nolk: nolk-convert: not found; it is in the package nolk-convert\n", stderr);
    return 1;
}

// For the help: main starts the converter before the command line is parsed.
void addConvertCommand(CLI::App& app) {
    app.add_subcommand("convert", "Make a model file of an ONNX file; starts nolk-convert with what follows");
}
