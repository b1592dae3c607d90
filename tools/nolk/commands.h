// The program's commands. Each function adds one to the command line; app must live as long as its commands.
#pragma once

namespace CLI {
class App;
}

void addInfoCommand(CLI::App& app);   // shows what is in a model file
void addRunCommand(CLI::App& app);    // runs a model on inputs from files
void addBenchCommand(CLI::App& app);  // times a model, as a whole and layer by layer
void addCheckCommand(CLI::App& app);  // reports what is wrong with a model file
void addDiffCommand(CLI::App& app);   // runs a model, and compares its outputs with expected ones
void addConvertCommand(CLI::App& app);

// Does what the command convert does: starts nolk-convert with these arguments, whose first is replaced by its name.
// Returns the exit status 1, with a line on standard error, only when there is no nolk-convert.
int startConverter(char** arguments);

// Adds the hidden commands manual and completion, which print the manual page and the bash completion for installation.
// Both cover all commands that app has when they run.
void addInstallCommands(CLI::App& app);
