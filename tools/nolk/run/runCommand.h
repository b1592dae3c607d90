#pragma once

namespace CLI {
class App;
}

// nolk run: runs a model on inputs from files; writes the outputs to files, or prints what stands out in them.
void addRunCommand(CLI::App& app);
