// The program's commands. Each function adds one to the command line; app must live as long as its commands.
#pragma once

namespace CLI {
class App;
}

void addInfoCommand(CLI::App& app);   // what is in a model file
void addRunCommand(CLI::App& app);    // runs a model on inputs from files
void addBenchCommand(CLI::App& app);  // times a model, as a whole and layer by layer
void addCheckCommand(CLI::App& app);  // what is wrong with a model file
void addDiffCommand(CLI::App& app);   // runs a model, and compares its outputs with expected ones

// Hidden commands that print what is installed with the program: nolk manual, nolk completion. They tell of all that
// app has when they run.
void addInstallCommands(CLI::App& app);
