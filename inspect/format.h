// Formats shapes and numbers for output.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <string>

// "[1, 8, 28, 28]", or "[1, 10]" for a matrix.
std::string shapeText(const nolk::TensorShape& shape);

// As printf's %g with this many digits, and as printf's %f with this many decimals.
std::string shortText(double number, int digits = 6);
std::string fixedText(double number, int decimals);

// "1,234,567"
std::string grouped(std::int64_t number);

// "1,234 bytes (1.2 KiB)", without the brackets below 1 KiB.
std::string bytesText(std::int64_t bytes);

// "1 record", "2 records"
std::string counted(std::int64_t count, const std::string& noun);
