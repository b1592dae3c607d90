// nolk info: what is in a model file, and what is made of it.
#pragma once

namespace CLI {
class App;
}

void addInfoCommand(CLI::App& app);
