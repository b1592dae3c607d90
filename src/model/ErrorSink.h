// Where reading a model file reports what is wrong: the entry points queue and print it, other programs collect it.
#pragma once

#include <string>

class ErrorSink {
public:
    // The load fails for this reason.
    virtual void error(const std::string& text) = 0;

    // The load goes on.
    virtual void warning(const std::string& text) = 0;

protected:
    ~ErrorSink() = default;
};
