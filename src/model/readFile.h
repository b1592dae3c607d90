#pragma once

#include <vector>

#include "model/ErrorSink.h"

// The bytes of a file below 2 GiB; none, with an error, when it cannot be opened or read. An empty file gives
// no bytes and no message.
std::vector<unsigned char> readFile(const char* path, ErrorSink& errors);
