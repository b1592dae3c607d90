// Rejects an operation that cannot be built.
#pragma once

// Throws std::invalid_argument with the text that printf would give, cut to 255 characters. The text names the
// operation, what it wants and what it got: "convolve: weights expect 6 input channels, input has 4".
[[noreturn]] void refuse(const char* format, ...) __attribute__((format(printf, 1, 2)));
