#include "nolk/run/InputOptions.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "nolk/numberChecks.h"

namespace {

// The number at `text`, which then stands behind it.
bool takeNumber(const char*& text, double& number) {
    char* end = nullptr;
    number = std::strtod(text, &end);
    const bool found = end != text && std::isfinite(number);
    text = end;
    return found;
}

// Turns "1/255" into a decimal number. Returns what is wrong.
std::string toDecimal(std::string& text) {
    const char* rest = text.c_str();
    double number = 0, divisor = 1;
    bool good = takeNumber(rest, number);
    if (good && *rest == '/') good = takeNumber(++rest, divisor) && divisor != 0;
    if (!good || *rest != '\0') return "'" + text + "' is neither a number nor a quotient of two";
    char decimal[40];
    std::snprintf(decimal, sizeof decimal, "%.17g", number / divisor);
    text = decimal;
    return "";
}

}  // namespace

void addInputOptions(CLI::App& command, InputOptions& options) {
    const CLI::Validator quotient(toDecimal, "");
    command.add_option("MODEL", options.model, "the model file")->type_name("FILE")->required();
    command
        .add_option("--input", options.inputs,
                    "the inputs: a file for each, with the whole batch in it, or a file for each sample")
        ->type_name("FILE");
    command.add_option("--batch", options.batch, "samples in a batch")
        ->type_name("N")
        ->check(wholeNumber(1, 1 << 20))
        ->capture_default_str();
    command
        .add_option("--scale", options.pixels.scale,
                    "of pictures: a value is (pixel - mean) * S; 1/255 is a number here")
        ->type_name("S")
        ->transform(quotient)
        ->default_str("1");
    command.add_option("--mean", options.pixels.mean, "of pictures: one mean, or one for each channel")
        ->type_name("M[,M,M]")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->transform(quotient)
        ->default_str("0");
}

const char kInputsHelp[] =
    "What an input's file holds follows from the ending of its name:\n"
    "  .npy              an array of float32 in C order, of the input's shape;\n"
    "                    leading extents of 1 may be missing\n"
    "  .pgm, .ppm, .pnm  a binary picture, which is one sample; its pixels count from 0\n"
    "                    to the file's maximum, 255 as a rule\n"
    "  any other         the floats alone, little-endian, in the order [n, c, h, w]\n"
    "When each sample has a file, all of the first input's come first.\n"
    "\n";
