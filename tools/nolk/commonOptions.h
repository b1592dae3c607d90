// What most commands take.
#pragma once

#include <string>

namespace CLI {
class App;
}

// MODEL. What options are read into must live as long as the command.
void addModel(CLI::App& command, std::string& model);

// --batch N
void addBatch(CLI::App& command, int& batch, const std::string& description = "samples in a batch");
