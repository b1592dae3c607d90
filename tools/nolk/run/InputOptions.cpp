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

// One number or several, separated by commas.
CLI::Option& addNumbers(CLI::App& command, const std::string& name, const std::string& values,
                        std::vector<double>& numbers, const std::string& description) {
    return *command.add_option(name, numbers, description)
                ->type_name(values)
                ->delimiter(',')
                ->allow_extra_args(false)
                ->transform(CLI::Validator(toDecimal, ""));
}

}  // namespace

void addInputOptions(CLI::App& command, InputOptions& options) {
    addModel(command, options.model);
    command
        .add_option("--input", options.inputs,
                    "the inputs: a file for each, with the whole batch in it, or a file for each sample")
        ->type_name("FILE");
    addBatch(command, options.batch);
    addNumbers(command, "--scale", "S[,S,S]", options.pixels.scale,
               "of images: a value is (pixel - mean) * S; one scale, or one for each channel; 1/255 is a number here")
        .default_str("1");
    addNumbers(command, "--mean", "M[,M,M]", options.pixels.mean, "of images: one mean, or one for each channel")
        .default_str("0");
    command.add_flag("--bgr", options.pixels.bgr, "of images: the network's channels are blue, green and red");
}

const char kInputsHelp[] =
    "What an input's file holds follows from the ending of its name:\n"
    "  .npy              an array of float32 in C order, of the input's shape;\n"
    "                    leading extents of 1 may be missing\n"
    "  .png, .jpg, .jpeg, .pgm, .ppm, .pnm\n"
    "                    a PNG, JPEG, or binary PGM or PPM image, which is one sample of as\n"
    "                    many channels, rows and columns as the input has\n"
    "  any other         the floats alone, little-endian, in the order [n, c, h, w]\n"
    "When each sample has a file, all of the first input's come first.\n"
    "\n"
    "The pixels of an image count from 0 to 255, with 16 bits in PNG to 65535, in PGM and\n"
    "PPM to the file's maximum. Alpha is left out. --mean and --scale take one number or\n"
    "one for each channel, in the order that the network has them: with --bgr the first is\n"
    "for blue.\n"
    "\n";
