// How the program writes what it shows.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <string>

// "[1, 8, 28, 28]", or "[1, 10]" for a matrix.
std::string shapeText(const nolk::TensorShape& shape);

// As printf's %g with so many digits, and as its %f.
std::string shortText(double number, int digits = 6);
std::string fixedText(double number, int decimals);

// "1,234,567"
std::string grouped(std::int64_t number);

// "1,234 bytes (1.2 KiB)", without the brackets below 1 KiB.
std::string bytesText(std::int64_t bytes);

// "1 record", "2 records"
std::string counted(std::int64_t count, const std::string& noun);

// Text from a file or a command line, fit for one line of a terminal: control characters become '?'.
std::string printable(const std::string& text);

// For XML's text and attributes.
std::string xmlText(const std::string& text);
