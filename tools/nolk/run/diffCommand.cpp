#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <stdexcept>

#include "inspect/format.h"
#include "nolk/commands.h"
#include "nolk/model/Network.h"
#include "nolk/numberChecks.h"
#include "nolk/output.h"
#include "nolk/run/Difference.h"
#include "nolk/run/InputOptions.h"
#include "nolk/run/npy.h"

namespace {

struct DiffOptions {
    InputOptions inputs;
    ImplementationOptions implementation;
    std::vector<std::string> expected;
    Tolerance tolerance;
    bool hasTolerance = false;
};

// "[0, 3, 1, 2]"
std::string indexText(std::size_t element, const nolk::TensorShape& shape) {
    const auto c = static_cast<std::size_t>(shape.c), h = static_cast<std::size_t>(shape.h),
               w = static_cast<std::size_t>(shape.w);
    std::string text = "[" + std::to_string(element / (c * h * w)) + ", " + std::to_string(element / (h * w) % c);
    if (extentsOf(shape).size() == 4)
        text += ", " + std::to_string(element / w % h) + ", " + std::to_string(element % w);
    return text + "]";
}

std::string describe(const char* kind, const Difference& difference, const HostTensor& actual,
                     const HostTensor& expected) {
    const std::size_t i = difference.element;
    if (difference.maximum == 0) return "";
    constexpr int kDigits = 9;  // enough to distinguish any two floats
    return std::string("  maximum ") + kind + " difference " + shortText(difference.maximum, 3) + " at " +
           indexText(i, actual.shape) + ": " + shortText(actual.values[i], kDigits) + ", expected " +
           shortText(expected.values[i], kDigits) + "\n";
}

std::string describe(std::size_t index, const HostTensor& actual, const HostTensor& expected, const Differences& all) {
    const bool equal = all.absolute.maximum == 0;
    return "output " + std::to_string(index) + " " + shapeText(actual.shape) +
           (equal ? ": all values are equal\n" : "\n") + describe("absolute", all.absolute, actual, expected) +
           describe("relative", all.relative, actual, expected);
}

void diff(const DiffOptions& options) {
    const Network network = loadNetwork(options.inputs.model, options.inputs.batch, options.implementation);
    if (options.expected.size() != network.outputs.size())
        throw std::runtime_error(
            options.inputs.model + ": " + counted(static_cast<std::int64_t>(options.expected.size()), "array") +
            " given, expected one for each of " + counted(static_cast<std::int64_t>(network.outputs.size()), "output"));
    std::vector<HostTensor> expected = hostTensors(network.outputs);
    for (std::size_t i = 0; i < expected.size(); ++i)
        readNpy(options.expected[i], expected[i].shape, expected[i].values.data());
    std::vector<HostTensor> inputs = readInputs(network, options.inputs);
    std::vector<HostTensor> outputs = hostTensors(network.outputs);
    runOnce(*network.runner, inputs, outputs);
    std::size_t tooLarge = 0, all = 0;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const Differences differences = compare(outputs[i].values, expected[i].values, options.tolerance);
        writeText("-", describe(i, outputs[i], expected[i], differences));
        tooLarge += differences.tooLarge;
        all += outputs[i].values.size();
    }
    if (options.hasTolerance && tooLarge > 0)
        throw std::runtime_error(options.inputs.model + ": " + std::to_string(tooLarge) + " of " +
                                 counted(static_cast<std::int64_t>(all), "value") + " beyond the tolerance");
}

}  // namespace

void addDiffCommand(CLI::App& app) {
    CLI::App* const command =
        app.add_subcommand("diff", "Run a model on inputs from files, and compare its outputs with expected ones");
    const auto options = std::make_shared<DiffOptions>();  // the command's callback has to be copyable
    addInputOptions(*command, options->inputs);
    options->implementation.addTo(*command);
    command->add_option("EXPECTED", options->expected, "what each output should be, as .npy")
        ->type_name("FILE")
        ->required();
    CLI::Option* const absolute =
        command
            ->add_option("--tolerance", options->tolerance.absolute, "the absolute difference that an element may have")
            ->type_name("T")
            ->check(noNegativeNumber());
    CLI::Option* const relative =
        command
            ->add_option("--rtol", options->tolerance.relative, "the relative difference that it may have in addition")
            ->type_name("R")
            ->check(noNegativeNumber());
    command->footer(std::string(kInputsHelp) +
                    "The relative difference is |value - expected| / |expected| and leaves out elements\n"
                    "expected to be 0. NaN equals NaN, and is infinitely far from any number. The exit\n"
                    "status is 1 when an element differs by more than T + R * |expected|, where the one\n"
                    "of T and R that is not given is 0; without both no difference is a failure.\n"
                    "\n"
                    "Example: nolk diff digits.cm expected.npy --input digit-3.pgm --scale 1/255");
    command->callback([options, absolute, relative] {
        options->hasTolerance = absolute->count() + relative->count() > 0;
        diff(*options);
    });
}
