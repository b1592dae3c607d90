#pragma once

namespace CLI {
class App;
}

// nolk diff: runs a model on inputs from files, and says how far its outputs are from expected ones.
void addDiffCommand(CLI::App& app);
