// nolk check: everything that is wrong or suspicious in a model file.
#pragma once

namespace CLI {
class App;
}

void addCheckCommand(CLI::App& app);
