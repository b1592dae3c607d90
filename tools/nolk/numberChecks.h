// Checks of values on the command line. Their messages name what is expected: "a number above 0, is x". CLI11's own
// checks would print the largest double as the upper bound, and add the bounds of every option to --help.
#pragma once

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>

// The number, if the whole text is a finite number.
inline std::optional<double> numberOf(const std::string& text) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(number)) return std::nullopt;
    return number;
}

// isGood takes a double.
template <typename IsGood>
CLI::Validator numberThat(IsGood isGood, const std::string& expected) {
    return {[isGood, expected](const std::string& text) {
                const std::optional<double> number = numberOf(text);
                return number && isGood(*number) ? "" : expected + ", is " + text;
            },
            ""};
}

inline CLI::Validator wholeNumber(int least, int most) {
    return numberThat(
        [least, most](double number) { return number >= least && number <= most && number == std::floor(number); },
        "a whole number from " + std::to_string(least) + " to " + std::to_string(most));
}

inline CLI::Validator positiveNumber() {
    return numberThat([](double number) { return number > 0; }, "a number above 0");
}

inline CLI::Validator noNegativeNumber() {
    return numberThat([](double number) { return number >= 0; }, "a number from 0 on");
}

// For names of files to write.
inline CLI::Validator fileName() {
    return {[](const std::string& text) { return text.empty() ? "a file's name, is empty" : ""; }, ""};
}
