#pragma once

namespace CLI {
class App;
}

// nolk bench: times a model, as a whole and layer by layer.
void addBenchCommand(CLI::App& app);
