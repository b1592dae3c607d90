// The options of commands that run a model on files: the model, its batch, and the files of its inputs.
#pragma once

#include <string>
#include <vector>

#include "nolk/model/HostTensor.h"
#include "nolk/model/Network.h"
#include "nolk/run/image.h"

namespace CLI {
class App;
}

struct InputOptions {
    std::string model;
    std::vector<std::string> inputs;
    int batch = 1;
    PixelRule pixels;
};

// Adds these options to a command. options must live as long as the command.
void addInputOptions(CLI::App& command, InputOptions& options);

// A paragraph about input files for the end of a command's help.
extern const char kInputsHelp[];

// The tensors for a network's inputs from the files of the options: one file for each input, or one for each sample of
// each input. Throws std::runtime_error, "path: what, expected what", which names the input if the model names it.
std::vector<HostTensor> readInputs(const Network& network, const InputOptions& options);
