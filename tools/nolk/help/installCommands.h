// Hidden commands that print what is installed with the program: nolk manual, nolk completion.
#pragma once

namespace CLI {
class App;
}

// app must live as long as its commands; they tell of all that it has when they run.
void addInstallCommands(CLI::App& app);
