// Reports failures to the host.
#pragma once

// Queues the text that printf would give, cut to 255 characters, for nolk_pop_error_message, and prints it in full as
// a line on standard error. Text from outside (a path, what()) is an argument, never the format.
void reportError(const char* format, ...) __attribute__((format(printf, 1, 2)));
