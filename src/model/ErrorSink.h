// Receives the errors and warnings of reading a model file. The entry points queue and print them, other programs
// collect them.
#pragma once

#include <string>

class ErrorSink {
public:
    // Reports why the load fails.
    virtual void error(const std::string& text) = 0;

    // Reports a problem that does not stop the load.
    virtual void warning(const std::string& text) = 0;

protected:
    ~ErrorSink() = default;
};
