// Finds implementations that live in other shared libraries.
#pragma once

#include <string>
#include <utility>

// "impl:cfg" split at the first colon into (impl, cfg); without a colon all of it is impl. The built-in
// implementation's name becomes "". Null gives two empty strings.
std::pair<std::string, std::string> parseImplCfg(const char* implCfg);

// The address of `symbol` in lib<implName>.so, looked for on the loader's path and then beside this library; null, with
// a message in the error channel, when library or symbol are missing. The library stays loaded.
void* find_proc(const char* implName, const char* symbol);
