#include "nolk/run/InputOptions.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <optional>

#include "nolk/commonOptions.h"
#include "nolk/numberChecks.h"

namespace {

// Turns "1/255" into a decimal number. Returns what is wrong.
std::string toDecimal(std::string& text) {
    const std::size_t slash = text.find('/');
    const std::optional<double> number = numberOf(text.substr(0, slash));
    const std::optional<double> divisor = slash == std::string::npos ? 1 : numberOf(text.substr(slash + 1));
    if (!number || !divisor || *divisor == 0) return "a number or a quotient of two, is " + text;
    char decimal[40];
    std::snprintf(decimal, sizeof decimal, "%.17g", *number / *divisor);
    text = decimal;
    return "";
}

}  // namespace

void addInputOptions(CLI::App& command, InputOptions& options) {
    const CLI::Validator quotient(toDecimal, "");
    addModel(command, options.model);
    command
        .add_option("--input", options.inputs,
                    "the inputs: a file for each, with the whole batch in it, or a file for each sample")
        ->type_name("FILE");
    addBatch(command, options.batch);
    command
        .add_option("--scale", options.pixels.scale, "of images: a value is (pixel - mean) * S; 1/255 is a number here")
        ->type_name("S")
        ->transform(quotient)
        ->default_str("1");
    command.add_option("--mean", options.pixels.mean, "of images: one mean, or one for each channel")
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
    "  .pgm, .ppm, .pnm  a binary image, which is one sample; its pixels count from 0\n"
    "                    to the file's maximum, 255 as a rule\n"
    "  any other         the floats alone, little-endian, in the order [n, c, h, w]\n"
    "When each sample has a file, all of the first input's come first.\n"
    "\n";
