// Which implementations of nolk.h there are, without a word on standard error.
//   requireImplementation("NolkFast:num_threads=2");  nolk::loadModel(..., "NolkFast:num_threads=2")
// libnolk prints a line when it cannot load an implementation, so these functions try it first, in the same places.
#pragma once

#include <string>

// The name without its settings; "NolkRaw" for "".
std::string implementationName(const std::string& nameAndSettings);

// The name with its settings; "NolkRaw:num_threads=2" for ":num_threads=2".
std::string inFull(const std::string& nameAndSettings);

// Whether libX.so can be loaded and has the entry point of an implementation. It stays loaded.
bool hasImplementation(const std::string& name);

// "NolkFast" where it is installed, else "NolkRaw".
const std::string& defaultImplementation();

// Throws nolk::ModelError, with the loader's text, for one that cannot be loaded.
void requireImplementation(const std::string& nameAndSettings);
