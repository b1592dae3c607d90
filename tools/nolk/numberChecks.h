// Checks of numbers on the command line. CLI11's own would quote the largest double as the upper bound, and --help the
// bounds of every option.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdlib>

inline CLI::Validator wholeNumber(int least, int most) { return CLI::Range(least, most).description(""); }

inline CLI::Validator positiveNumber() {
    return {[](const std::string& text) { return std::atof(text.c_str()) > 0 ? "" : text + " is not above 0"; }, ""};
}

inline CLI::Validator noNegativeNumber() {
    return {[](const std::string& text) { return std::atof(text.c_str()) >= 0 ? "" : text + " is negative"; }, ""};
}
