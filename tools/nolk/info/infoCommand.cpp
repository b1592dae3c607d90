#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "nolk/commands.h"
#include "nolk/info/drawings.h"
#include "nolk/info/infoReport.h"
#include "nolk/model/Network.h"
#include "nolk/numberChecks.h"
#include "nolk/output.h"

namespace {

struct InfoOptions {
    std::string model;
    int batch = 1;
    bool json = false;
    std::string dot, svg, memory;
};

// Whether a drawing or its source goes to standard output.
bool isTaken(const InfoOptions& options) {
    const int wishes = (options.dot == "-") + (options.svg == "-") + (options.memory == "-");
    if (wishes + options.json > 1 && wishes > 0)
        throw UsageError(wishes > 1 ? "only one of --dot, --svg and --memory can go to standard output"
                                    : "a drawing and --json both want standard output");
    return wishes > 0;
}

nolk::ModelInfo inspect(const std::string& path, int batch) {
    const std::vector<unsigned char> bytes = readModel(path);
    try {
        return nolk::inspectModel(bytes.data(), bytes.size(), {batch, nolk::InspectionDepth::run, kExaminationLimits});
    } catch (const nolk::ModelError& e) {
        throw std::runtime_error(path + ": " + e.what());
    }
}

void info(const InfoOptions& options) {
    const bool taken = isTaken(options);
    const std::string& path = options.model;
    const nolk::ModelInfo model = inspect(path, options.batch);
    if (!options.dot.empty()) writeText(options.dot, graphSource(path, model));
    if (!options.svg.empty()) writeText(options.svg, graphSvg(graphSource(path, model)));
    if (!options.memory.empty()) writeText(options.memory, memoryDrawing(path, model));
    if (!taken) writeText("-", options.json ? infoJson(path, model) : infoText(path, model));
}

}  // namespace

void addInfoCommand(CLI::App& app) {
    const auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "Show what is in a model file and what the library makes of it");
    addModel(*command, options->model);
    addBatch(*command, options->batch, "samples in a batch; shapes, multiply-adds and memory depend on it");
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
                     "draw the memory as an SVG: time along x, bytes of the arena along y, a box for each range that "
                     "tensors share, and the scratch memory above")
        ->type_name("FILE")
        ->check(fileName());
    command->footer(
        "A multiply-add is counted for each product that a convolution, deconvolution,\n"
        "full connection, matrix product or LSTM sums up, padding included; other\n"
        "operations count none. The column layer shows which layer of the runner computes\n"
        "an operation; \"in 2\" means that layer 2 has absorbed it. With - as FILE a graph\n"
        "or drawing goes to standard output, instead of the text.\n"
        "\n"
        "Example: nolk info digits.cm --svg graph.svg --memory arena.svg");
    command->callback([options] { info(*options); });
}
