#include "nolk/bench/benchCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <random>

#include "builder/utils.h"
#include "nolk/UsageError.h"
#include "nolk/bench/LayerTimes.h"
#include "nolk/bench/benchReport.h"
#include "nolk/bench/chromeTrace.h"
#include "nolk/bench/repeat.h"
#include "nolk/commonOptions.h"
#include "nolk/model/LoadedModel.h"
#include "nolk/model/peakBytes.h"
#include "nolk/numberChecks.h"
#include "nolk/outputFile.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMostWarmups = 1000, kMostThreads = 1024;

constexpr char kFooter[] =
    "Inputs are pseudo-random numbers from 0 to 1, the same in every call. A percentile\n"
    "is the smallest time that so many percent of the runs did not exceed; the median is\n"
    "the 50th. Images per second are the batch divided by the mean. Peak memory is the\n"
    "largest resident set of the process so far, program and libraries included.\n"
    "\n"
    "Layers are timed in runs of their own, as many or as long. They are numbered as in\n"
    "nolk info, which tells what they compute; GFLOP/s count two operations for each\n"
    "multiply-add and are left out where multiply-adds are not what a layer does. A trace\n"
    "is for chrome://tracing or ui.perfetto.dev; with - as FILE it goes to standard output,\n"
    "in place of the text.\n"
    "\n"
    "Example: nolk bench digits.cm --batch 8 --layers --sort time";

struct BenchOptions {
    std::string model;
    std::string config;
    int batch = 1;
    int threads = 0;  // 0: what config says
    int warmup = 3;
    Limit limit;
    bool layers = false;
    std::string sort = "order";
    std::string trace;
    bool json = false;
};

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// The builder's settings, with the threads in the place of those of --config.
std::string settingsOf(const BenchOptions& options) {
    auto settings = cfgToMap(options.config.c_str());
    if (options.threads > 0) settings["num_threads"] = std::to_string(options.threads);
    std::string text;
    for (const auto& [key, value] : settings)
        text.append(text.empty() ? "" : ",").append(key).append("=").append(value);
    return text;
}

// What is wrong with --config.
std::string checkConfig(const std::string& config) {
    const auto settings = cfgToMap(config.c_str());
    for (const auto& [key, value] : settings) {
        if (key != "num_threads" && key != "gemm_thresh") return key + ": no such setting; num_threads, gemm_thresh";
        try {
            const int number = intSetting(settings, key.c_str(), 1);
            if (key == "num_threads" && (number < 1 || number > kMostThreads))
                return "num_threads must be 1 to " + std::to_string(kMostThreads) + ", is " + value;
        } catch (const std::exception&) {
            return key + " is no whole number";
        }
    }
    return "";
}

std::vector<HostTensor> randomTensors(const std::vector<nolk::TensorShape>& shapes) {
    std::minstd_rand random(1);  // fixed by the language, so the same everywhere
    std::vector<HostTensor> tensors = hostTensors(shapes);
    for (HostTensor& t : tensors)
        for (float& v : t.values) v = static_cast<float>(random() >> 7) * 0x1p-24f;
    return tensors;
}

std::vector<double> timeRuns(LoadedModel& model, std::vector<HostTensor>& inputs, const BenchOptions& options) {
    std::vector<HostTensor> outputs = hostTensors(model.runner().outputShapes());
    if (options.warmup > 0)
        repeat({options.warmup, 0}, "warming up", [&] { runStrictly(model.runner(), inputs, outputs); });
    std::vector<double> seconds;
    repeat(options.limit, "runs", [&] {
        const Clock::time_point start = Clock::now();
        runOnce(model.runner(), inputs, outputs);
        seconds.push_back(secondsSince(start));
    });
    return seconds;
}

std::vector<LayerTime> timeLayers(LoadedModel& model, const std::vector<HostTensor>& inputs,
                                  const BenchOptions& options) {
    LayerTimes times(model, inputs);
    repeat(options.limit, "layers", [&times] { times.run(); });
    if (!options.trace.empty()) writeText(options.trace, chromeTrace(times, options.model));
    std::vector<LayerTime> layers = times.layers();
    if (options.sort == "time")
        std::stable_sort(layers.begin(), layers.end(),
                         [](const LayerTime& a, const LayerTime& b) { return a.seconds > b.seconds; });
    return layers;
}

void bench(const BenchOptions& options) {
    if (options.trace == "-" && options.json) throw UsageError("--trace - and --json both want standard output");
    const std::string settings = settingsOf(options);
    LoadedModel model(options.model, settings.c_str(), options.batch);
    std::vector<HostTensor> inputs = randomTensors(model.runner().inputShapes());
    const std::vector<double> seconds = timeRuns(model, inputs, options);
    BenchReport report{options.model,      options.batch,  intSetting(cfgToMap(settings.c_str()), "num_threads", 1),
                       options.warmup,     seconds.size(), model.loadSeconds(),
                       summarise(seconds), peakBytes(),    {}};
    if (options.layers || !options.trace.empty()) {
        std::vector<LayerTime> layers = timeLayers(model, inputs, options);
        if (options.layers) report.layers = std::move(layers);
    }
    if (options.trace != "-") writeText("-", options.json ? reportJson(report) : reportText(report));
}

void addOptions(CLI::App& command, BenchOptions& options) {
    addModel(command, options.model);
    command.add_option("--config", options.config, "the library's settings, as key=value,...")
        ->type_name("CFG")
        ->check(CLI::Validator(std::function<std::string(std::string&)>(checkConfig), ""));
    addBatch(command, options.batch);
    command.add_option("--threads", options.threads, "threads of the matrix products: num_threads of the settings")
        ->type_name("N")
        ->check(wholeNumber(1, kMostThreads));
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
