#include "nolk/info/infoCommand.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "nolk/UsageError.h"
#include "nolk/commonOptions.h"
#include "nolk/info/ExaminedModel.h"
#include "nolk/info/graphPicture.h"
#include "nolk/info/infoReport.h"
#include "nolk/info/memoryPicture.h"
#include "nolk/numberChecks.h"
#include "nolk/outputFile.h"

namespace {

struct InfoOptions {
    std::string model;
    int batch = 1;
    bool json = false;
    std::string dot, svg, memory;
};

// Whether standard output is for a graph or picture.
bool isTaken(const InfoOptions& options) {
    const int wishes = (options.dot == "-") + (options.svg == "-") + (options.memory == "-");
    if (wishes + options.json > 1 && wishes > 0)
        throw UsageError(wishes > 1 ? "only one of --dot, --svg and --memory can go to standard output"
                                    : "a graph or picture and --json both want standard output");
    return wishes > 0;
}

void info(const InfoOptions& options) {
    const bool taken = isTaken(options);
    const ExaminedModel model(options.model, options.batch);
    if (!options.dot.empty()) writeText(options.dot, graphSource(model));
    if (!options.svg.empty()) writeText(options.svg, graphSvg(graphSource(model)));
    if (!options.memory.empty()) writeText(options.memory, memoryPicture(model));
    if (!taken) writeText("-", options.json ? infoJson(model) : infoText(model));
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    const auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "Show what is in a model file and what the library makes of it");
    addModel(*command, options->model);
    addBatch(*command, options->batch, "samples in a batch, for which shapes, multiply-adds and memory are");
    command->add_flag("--json", options->json, "print JSON instead of text");
    command->add_option("--dot", options->dot, "write the graph of operations, in Graphviz's language")
        ->type_name("FILE")
        ->check(fileName());
    command
        ->add_option("--svg", options->svg, "draw that graph as an SVG, with Graphviz's dot, which must be installed")
        ->type_name("FILE")
        ->check(fileName());
    command
        ->add_option("--memory", options->memory,
                     "draw the arena as an SVG: time along x, bytes along y, a box for each range that tensors share")
        ->type_name("FILE")
        ->check(fileName());
    command->footer(
        "A multiply-add is counted for each product that a convolution, deconvolution,\n"
        "full connection, matrix product or LSTM sums up, padding included; other\n"
        "operations count none. The column layer tells which layer of the runner computes\n"
        "an operation; \"in 2\" means that layer 2 has absorbed it. With - as FILE a graph\n"
        "or picture goes to standard output, in place of the text.\n"
        "\n"
        "Example: nolk info digits.cm --svg graph.svg --memory arena.svg");
    command->callback([options] { info(*options); });
}
