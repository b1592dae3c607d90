#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <random>

#include "inspect/peakBytes.h"
#include "nolk/bench/benchReport.h"
#include "nolk/commands.h"
#include "nolk/numberChecks.h"
#include "nolk/output.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMostWarmups = 1000;

constexpr char kFooter[] =
    "Inputs are pseudo-random numbers from 0 to 1, the same in every call. A percentile\n"
    "is the smallest time that so many percent of the runs did not exceed; the median is\n"
    "the 50th. Images per second are the batch divided by the mean. Peak memory is the\n"
    "largest resident set of the process so far, program and libraries included.\n"
    "\n"
    "Layers are timed in additional runs, as many or as long as the others, if the\n"
    "implementation describes its layers. Layers and records are numbered as in nolk\n"
    "info. GFLOP/s count two operations for each multiply-add; layers without\n"
    "multiply-adds have none. A trace can be opened in chrome://tracing or\n"
    "ui.perfetto.dev; with - as FILE it goes to standard output, instead of the text.\n"
    "\n"
    "Example: nolk bench digits.cm --batch 8 --layers --sort time";

struct BenchOptions {
    std::string model;
    ImplementationOptions implementation;
    int batch = 1;
    int warmup = 3;
    Limit limit;
    bool layers = false;
    std::string sort = "order";
    std::string trace;
    bool json = false;
};

std::vector<HostTensor> randomTensors(const std::vector<nolk::TensorShape>& shapes) {
    std::minstd_rand random(1);  // fixed by the language, so the same everywhere
    std::vector<HostTensor> tensors = hostTensors(shapes);
    for (HostTensor& t : tensors)
        for (float& v : t.values) v = static_cast<float>(random() >> 7) * 0x1p-24f;
    return tensors;
}

std::vector<double> timeRuns(const Network& network, std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs,
                             const BenchOptions& options) {
    if (options.warmup > 0)
        repeat({options.warmup, 0}, "warming up", [&] { runOnce(*network.runner, inputs, outputs); });
    std::vector<double> seconds;
    repeat(options.limit, "runs", [&] {
        const Clock::time_point start = Clock::now();
        runOnce(*network.runner, inputs, outputs);
        seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    });
    return seconds;
}

std::vector<LayerTime> layersOf(const LayerTimes& times, const BenchOptions& options) {
    std::vector<LayerTime> layers = times.layers();
    if (options.sort == "time")
        std::stable_sort(layers.begin(), layers.end(),
                         [](const LayerTime& a, const LayerTime& b) { return a.seconds > b.seconds; });
    return layers;
}

void bench(const BenchOptions& options) {
    if (options.trace == "-" && options.json) throw UsageError("--trace - and --json both want standard output");
    const Network network = loadNetwork(options.model, options.batch, options.implementation);
    std::optional<LayerTimes> times;
    if (options.layers || !options.trace.empty()) times.emplace(network, options.implementation.name());
    std::vector<HostTensor> inputs = randomTensors(network.inputs), outputs = hostTensors(network.outputs);
    const std::vector<double> seconds = timeRuns(network, inputs, outputs, options);
    BenchReport report{options.model,       options.implementation.name(),
                       options.batch,       options.implementation.threads(),
                       options.warmup,      seconds.size(),
                       network.loadSeconds, summarise(seconds),
                       peakBytes(),         {}};
    if (times) repeat(options.limit, "layers", [&] { times->run(inputs, outputs); });
    if (!options.trace.empty()) writeText(options.trace, chromeTrace(*times, options.model));
    if (options.layers) report.layers = layersOf(*times, options);
    if (options.trace != "-") writeText("-", options.json ? reportJson(report) : reportText(report));
}

void addOptions(CLI::App& command, BenchOptions& options) {
    addModel(command, options.model);
    addBatch(command, options.batch);
    options.implementation.addTo(command);
    command.add_option("--warmup", options.warmup, "runs before the first that is timed")
        ->type_name("N")
        ->check(wholeNumber(0, kMostWarmups))
        ->capture_default_str();
    CLI::Option* const runs = command.add_option("--runs", options.limit.runs, "runs to time, instead of --seconds")
                                  ->type_name("N")
                                  ->check(wholeNumber(1, kMostRuns));
    command.add_option("--seconds", options.limit.seconds, "how long to go on, and as long again for the layers")
        ->type_name("S")
        ->check(positiveNumber())
        ->excludes(runs)
        ->capture_default_str();
    CLI::Option* const layers = command.add_flag("--layers", options.layers, "time each layer too");
    command.add_option("--sort", options.sort, "layers in execution order, or those that take longest first")
        ->type_name("order|time")
        ->check(CLI::IsMember({"order", "time"}).description(""))
        ->needs(layers)
        ->capture_default_str();
    command.add_option("--trace", options.trace, "write ten runs, layer by layer, as a Chrome trace")
        ->type_name("FILE")
        ->check(fileName());
    command.add_flag("--json", options.json, "print for programs; times in seconds");
}

}  // namespace

void addBenchCommand(CLI::App& app) {
    CLI::App* const command = app.add_subcommand("bench", "Time a model, as a whole and layer by layer");
    const auto options = std::make_shared<BenchOptions>();  // the command's callback has to be copyable
    addOptions(*command, *options);
    command->footer(kFooter);
    command->callback([options] { bench(*options); });
}
