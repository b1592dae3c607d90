#include "api/reportError.h"

#include <nolk.h>

#include <cstdarg>
#include <cstdio>

void reportError(const char* format, ...) {
    char message[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    nolk_push_error_message(message);

    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}
