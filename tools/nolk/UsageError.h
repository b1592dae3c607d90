// Wrong usage that only a command can tell, once it knows the model: one line, exit status 2.
#pragma once

#include <stdexcept>

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
