// The command line of nolk-convert.
//   CLI::App app("...", "nolk-convert");
//   Arguments arguments;
//   addOptions(app, arguments);
//   app.parse(argc, argv);
//   checkPaths(arguments);
//   const ConvertOptions options = optionsOf(arguments);
// These throw WrongUsage for what a user can only have mistyped.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "convert/conversion.h"

namespace CLI {
class App;
}

namespace convert {

struct Arguments {
    std::string in;
    std::string out;     // "-" for standard output
    std::string report;  // likewise; empty for none
    std::vector<std::string> shapes;
    std::vector<std::string> checkInputs;
    int version = 4;
    bool lossy = false;
    bool noCheck = false;
};

// what() is one line.
struct WrongUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// arguments must live as long as app.
void addOptions(CLI::App& app, Arguments& arguments);

// Before hours of work: whether one path is given for two files, and whether the results can be written. Throws
// std::runtime_error, too, for a folder that is missing or read-only.
void checkPaths(const Arguments& arguments);

// The same for the files that hold the model's weights.
void checkPaths(const Arguments& arguments, const Model& model);

ConvertOptions optionsOf(const Arguments& arguments);

}  // namespace convert
