#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>

#include "support/Program.h"
#include "inspect/ModelWriterImpl.h"

namespace {

using Json = nlohmann::json;

Json jsonOf(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "bench");
    arguments.insert(arguments.end(), {"--runs", "3", "--json"});
    const ProgramResult r = runProgram(arguments);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    return Json::parse(r.out, nullptr, false);
}

TEST(BenchCommand, PrintsOneFactALine) {
    const ProgramResult r = runProgram({"bench", kDigitsModel, "--runs", "7", "--warmup", "2", "--batch", "4",
                                        "--config", "num_threads=3", "--threads", "2", "--layers"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    for (const char* line : {"digits.cm\n", "\nbatch              4\n", "\nthreads            2\n", "\nload ",
                             "\nruns               7 after 2 to warm up\n", "\nminimum ", "\nmedian ", "\nmean ",
                             "\n99th percentile ", "\nimages per second ", "\npeak memory ",
                             "\n    4  conv        [4, 32, 14, 14] ", " all layers ", " whole run"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
}

TEST(BenchCommand, ReportsTimesThatFitTogether) {
    const Json report = jsonOf({kDigitsModel, "--layers", "--sort", "time", "--batch", "2"});
    const Json& seconds = report["seconds"];
    EXPECT_GT(seconds["minimum"], 0);
    EXPECT_LE(seconds["minimum"], seconds["median"]);
    EXPECT_LE(seconds["median"], seconds["p99"]);
    EXPECT_LE(seconds["mean"], seconds["p99"]);
    EXPECT_NEAR(report["imagesPerSecond"].get<double>() * seconds["mean"].get<double>(), 2, 1e-9);
    EXPECT_EQ(report["runs"], 3);
    double shares = 0, last = 1;
    for (const Json& layer : report["layers"]) {
        EXPECT_LE(layer["share"], last);
        last = layer["share"];
        shares += last;
    }
    ASSERT_EQ(report["layers"].size(), 11u);
    const Json info = Json::parse(runProgram({"info", kDigitsModel, "--batch", "2", "--json"}).out, nullptr, false);
    for (const Json& layer : report["layers"]) {
        const Json& same = info["layers"][layer["layer"].get<std::size_t>() - 1];
        for (const char* key : {"kind", "output", "dims"}) EXPECT_EQ(layer[key], same[key]) << layer;
    }
    EXPECT_NEAR(shares, 1, 1e-9);
}

TEST(BenchCommand, CountsMultiplyAddsAsInfoDoes) {
    std::vector<float> f(4000, 0.5f);
    const struct {
        const char* operation;
        std::function<nolk::TensorX*(ModelWriter&)> record;
        int expected;
    } cases[] = {
        {"conv",
         [&](ModelWriter& w) {
             // The batch normalisation is folded into the convolution, and the padding is its own.
             nolk::TensorX* x = w.pad(w.input({1, 4, 6, 5, 3}), {1, 1, 1, 1});
             x = w.convolve(x, {}, {1, 1}, {1, 1}, {2, 3, 2, 3, 3, false, f.data(), nullptr});
             const nolk::Vector six{6, f.data()};
             return w.batchNormalize(x, six, six, six, six, 0.1f);
         },
         6 * 6 * 5 * 2 * 3 * 3},
        {"deconv",
         [&](ModelWriter& w) {
             return w.deConvolve(w.input({1, 4, 6, 5, 3}), {}, {2, 2}, {1, 1},
                                 {1, 2, 4, 3, 3, false, f.data(), nullptr});
         },
         4 * 6 * 5 * 2 * 3 * 3},
        {"fc",
         [&](ModelWriter& w) {
             return w.fullConnect(w.input({1, 40, 1, 1, 1}), {1, 7, 40, 1, 1, true, f.data(), nullptr});
         },
         40 * 7},
        {"fc",  // of weights for more channels than there are
         [&](ModelWriter& w) {
             return w.fullConnect(w.input({1, 30, 1, 1, 1}), {1, 7, 40, 1, 1, true, f.data(), nullptr});
         },
         30 * 7},
        {"fc",  // in groups
         [&](ModelWriter& w) {
             return w.fullConnect(w.input({1, 40, 1, 1, 1}), {4, 7, 10, 1, 1, true, f.data(), nullptr});
         },
         40 * 7},
        {"LSTM",
         [&](ModelWriter& w) {
             return w.lstm(w.input({1, 1, 6, 5, 3}),
                           {nolk::Direction::both, 2, 5, 3, f.data(), f.data(), nullptr, false});
         },
         6 * 2 * 4 * 3 * (5 + 3)},
        {"matmul",
         [](ModelWriter& w) {
             return w.matMul(w.input({1, 2, 3, 4, 3}), w.input({1, 2, 4, 5, 3}));
         },
         2 * 3 * 4 * 5},
        {"act",
         [](ModelWriter& w) {
             return w.tanh(w.input({1, 2, 3, 4, 3}));
         },
         0},
    };
    for (const auto& c : cases) {
        ModelWriterImpl writer;
        nolk::TensorX* y = c.record(writer);
        writer.build(&y, 1);
        const std::string model = writeTemporary("one.cm", writer.bytes());
        const Json report = jsonOf({model, "--batch", "2", "--layers"});
        ASSERT_EQ(report["layers"].size(), 1u) << report;
        EXPECT_EQ(report["layers"][0]["kind"], c.operation);
        EXPECT_EQ(report["layers"][0]["multiplyAdds"], 2 * c.expected) << c.operation;
        const Json info = Json::parse(runProgram({"info", model, "--batch", "2", "--json"}).out, nullptr, false);
        EXPECT_EQ(info["totals"]["multiplyAdds"]["beforeFusion"], 2 * c.expected) << c.operation;
    }
}

TEST(BenchCommand, WritesATraceWithTheLayersInsideTheirRuns) {
    const std::string file = temporaryPath("trace.json");
    const ProgramResult r = runProgram({"bench", kDigitsModel, "--runs", "3", "--trace", file});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("all layers"), std::string::npos);
    const Json trace = Json::parse(fileText(file), nullptr, false);
    int runs = 0, layers = 0;
    double runEnd = 0, lastEnd = 0;
    for (const Json& event : trace["traceEvents"]) {
        if (event["ph"] != "X") continue;
        const double start = event["ts"], end = start + event["dur"].get<double>();
        const bool isRun = event["name"].get<std::string>().find("run ") == 0;
        constexpr double kRounding = 1e-6;
        EXPECT_GE(start, lastEnd - kRounding);
        EXPECT_LE(end, isRun ? end : runEnd + kRounding);
        lastEnd = isRun ? start : end;
        if (isRun) runEnd = end;
        runs += isRun;
        layers += event["cat"] == "layer";
    }
    EXPECT_EQ(runs, 3);
    EXPECT_EQ(layers, 33);
}

TEST(BenchCommand, RefusesArgumentsThatDoNotFit) {
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{"--runs", "2", "--seconds", "1"}, 2, "--runs excludes --seconds"},
        {{"--runs", "0"}, 2, "--runs: a whole number from 1 to 10000000, is 0"},
        {{"--seconds", "nan"}, 2, "--seconds: a number above 0, is nan"},
        {{"--trace", ""}, 2, "--trace: a file's name, is empty"},
        {{"--trace", "-", "--json"}, 2, "--trace - and --json both want standard output"},
        {{"--sort", "time"}, 2, "--sort requires --layers"},
        {{"--config", "num_threads=many"}, 2, "--config: num_threads is no whole number"},
        {{"--config", "num_threads=0"}, 2, "--config: num_threads must be 1 to 1024, is 0"},
        {{"--config", "num_threads=2,foo=1"}, 2, "--config: foo: no such setting; num_threads, gemm_thresh"},
        {{"--runs", "1", "--trace", "/no-such-folder/t"},
         1,
         "/no-such-folder/t: cannot be written: No such file or directory"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments = {"bench", kDigitsModel};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const ProgramResult r = runProgram(arguments);
        EXPECT_EQ(r.status, c.status) << c.error;
        EXPECT_EQ(r.err, "nolk: " + c.error + "\n");
        EXPECT_EQ(r.out, "");
    }
}

}  // namespace
