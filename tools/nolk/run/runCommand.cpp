#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "inspect/format.h"
#include "nolk/commands.h"
#include "nolk/model/Network.h"
#include "nolk/numberChecks.h"
#include "nolk/output.h"
#include "nolk/run/InputOptions.h"
#include "nolk/run/npy.h"

namespace {

constexpr std::size_t kTop = 5;

struct RunOptions {
    InputOptions inputs;
    ImplementationOptions implementation;
    std::vector<std::string> outputs;
};

// The indices and values of the largest values, without NaN.
std::string topText(const float* values, std::size_t count) {
    std::vector<std::size_t> order(count);
    std::iota(order.begin(), order.end(), std::size_t{0});
    order.erase(std::remove_if(order.begin(), order.end(), [values](std::size_t i) { return std::isnan(values[i]); }),
                order.end());
    const auto end = order.begin() + static_cast<std::ptrdiff_t>(std::min(kTop, order.size()));
    std::partial_sort(order.begin(), end, order.end(), [values](std::size_t a, std::size_t b) {
        return values[a] > values[b] || (values[a] == values[b] && a < b);
    });
    std::string text;
    for (auto i = order.begin(); i != end; ++i)
        text += (i == order.begin() ? "  " : ",  ") + std::to_string(*i) + ": " + shortText(values[*i]);
    return text;
}

std::string topOfSamples(const HostTensor& tensor) {
    const auto count = static_cast<std::size_t>(std::max(tensor.shape.c, 0));
    std::string text;
    for (int n = 0; n < tensor.shape.n; ++n)
        text += "  sample " + std::to_string(n) + ":" +
                topText(tensor.values.data() + static_cast<std::size_t>(n) * count, count) + "\n";
    return text;
}

std::string rangeText(const std::vector<float>& values) {
    float least = INFINITY, most = -INFINITY;
    double sum = 0;
    std::size_t numbers = 0;
    for (const float v : values) {
        if (std::isnan(v)) continue;
        least = std::min(least, v);
        most = std::max(most, v);
        sum += v;
        ++numbers;
    }
    if (numbers == 0) return "";
    return "  minimum " + shortText(least) + ", maximum " + shortText(most) + ", mean " +
           shortText(sum / static_cast<double>(numbers)) + "\n";
}

// `name` is empty, or ends in a blank.
std::string describe(std::size_t index, const std::string& name, const HostTensor& tensor) {
    const bool isVector = tensor.shape.h == 1 && tensor.shape.w == 1;
    std::string text = "output " + std::to_string(index) + " " + name + shapeText(tensor.shape);
    text += isVector ? ", the largest values:\n" + topOfSamples(tensor) : "\n" + rangeText(tensor.values);
    const auto nans = std::count_if(tensor.values.begin(), tensor.values.end(), [](float v) { return std::isnan(v); });
    if (nans > 0)
        text += "  " + std::to_string(nans) + " of " +
                counted(static_cast<std::int64_t>(tensor.values.size()), "value") + " are NaN\n";
    return text;
}

// ": "boxes", "scores"", or nothing.
std::string allNames(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) text += (i == 0 ? ": " : ", ") + nameText(names, i);
    return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

void run(const RunOptions& options) {
    if (std::count(options.outputs.begin(), options.outputs.end(), "-") > 1)
        throw UsageError("--output: only one can go to standard output");
    const Network network = loadNetwork(options.inputs.model, options.inputs.batch, options.implementation);
    const std::size_t count = network.outputs.size();
    if (!options.outputs.empty() && options.outputs.size() != count)
        throw std::runtime_error(options.inputs.model + ": " +
                                 counted(static_cast<std::int64_t>(options.outputs.size()), "output file") +
                                 ", expected " + std::to_string(count) + allNames(network.info.outputNames));
    std::vector<HostTensor> inputs = readInputs(network, options.inputs);
    std::vector<HostTensor> outputs = hostTensors(network.outputs);  // after the checks: they may be large
    runOnce(*network.runner, inputs, outputs);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        if (options.outputs.empty())
            writeText("-", describe(i, nameText(network.info.outputNames, i), outputs[i]));
        else
            writeText(options.outputs[i], npyBytes(outputs[i]));
    }
}

}  // namespace

void addRunCommand(CLI::App& app) {
    CLI::App* const command =
        app.add_subcommand("run", "Run a model on inputs from files, and print or write its outputs");
    const auto options = std::make_shared<RunOptions>();  // the command's callback has to be copyable
    addInputOptions(*command, options->inputs);
    options->implementation.addTo(*command);
    command
        ->add_option("--output", options->outputs,
                     "write the outputs as .npy, a file for each, instead of printing them")
        ->type_name("FILE")
        ->check(fileName());
    command->footer(std::string(kInputsHelp) +
                    "For an output without rows and columns, the five largest values of each sample are\n"
                    "printed with their indices; for any other output its minimum, maximum and mean.\n"
                    "NaNs are left out and counted.\n"
                    "\n"
                    "Example: nolk run digits.cm --input digit-3.pgm --scale 1/255");
    command->callback([options] { run(*options); });
}
