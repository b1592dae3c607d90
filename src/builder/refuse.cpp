#include "builder/refuse.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

void refuse(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    throw std::invalid_argument(text);
}
