#include "inspect/format.h"

#include <cstdio>

std::string shapeText(const nolk::TensorShape& shape) {
    std::string text = "[" + std::to_string(shape.n) + ", " + std::to_string(shape.c);
    if (shape.dims != 1 || shape.h != 1 || shape.w != 1)
        text += ", " + std::to_string(shape.h) + ", " + std::to_string(shape.w);
    return text + "]";
}

std::string shortText(double number, int digits) {
    char text[40];
    std::snprintf(text, sizeof text, "%.*g", digits, number);
    return text;
}

std::string fixedText(double number, int decimals) {
    std::string text(400, ' ');  // the largest double has 309 digits
    text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.*f", decimals, number)));
    return text;
}

std::string grouped(std::int64_t number) {
    std::string digits = std::to_string(number);
    const std::size_t first = number < 0 ? 1 : 0;
    for (std::size_t i = digits.size(); i > first + 3;) {
        i -= 3;
        digits.insert(i, ",");
    }
    return digits;
}

std::string bytesText(std::int64_t bytes) {
    std::string text = grouped(bytes) + (bytes == 1 ? " byte" : " bytes");
    if (bytes < 1024) return text;
    const char* units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; size >= 1024 && unit < 5; ++unit) size /= 1024;
    char human[32];
    std::snprintf(human, sizeof human, " (%.1f %s)", size, units[unit]);
    return text + human;
}

std::string counted(std::int64_t count, const std::string& noun) {
    return grouped(count) + " " + noun + (count == 1 ? "" : "s");
}
