#include "model/reportError.h"

#include <nolk.h>

#include <cstdarg>
#include <cstdio>

void reportError(const char* format, ...) {
    char message[256];
    va_list args, argsAgain;
    va_start(args, format);
    va_copy(argsAgain, args);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    nolk_push_error_message(message);

    std::vfprintf(stderr, format, argsAgain);
    va_end(argsAgain);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}
