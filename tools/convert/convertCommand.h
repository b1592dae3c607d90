// The command line of nolk-convert.
#pragma once

namespace convert {

// Returns the exit status: 0 when the file has been written, 1 when it has not, 2 for wrong usage.
int convertCommand(int argc, char** argv);

}  // namespace convert
