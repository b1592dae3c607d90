#include <nlohmann/json.hpp>

#include "support/Program.h"

namespace {

using Json = nlohmann::json;

Json jsonOf(const std::vector<std::string>& arguments) {
    const ProgramResult r = runProgram(arguments);
    EXPECT_EQ(r.status, 0) << r.err;
    return Json::parse(r.out, nullptr, false);
}

TEST(BenchCommand, PrintsOneFactALine) {
    const ProgramResult r =
        runProgram({"bench", kDigitsModel, "--runs", "7", "--warmup", "2", "--batch", "4", "--implementation",
                    "NolkRaw:num_threads=3,gemm_thresh=1000", "--threads", "2", "--layers"});
    EXPECT_EQ(r.err, "");
    for (const char* line : {"digits.cm\n", "\nimplementation     NolkRaw\n", "\nbatch              4\n",
                             "\nthreads            2\n", "\nload ", "\nruns               7 after 2 to warm up\n",
                             "\nminimum ", "\nmedian ", "\nmean ", "\n99th percentile ", "\nimages per second ",
                             "\npeak memory ", "\n    4      #6  conv        3x3, pad 1     [4, 32, 14, 14] ",
                             " all layers ", " whole run ", "\nkind ", "\nconv          2 "})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
}

TEST(BenchCommand, ReportsTimesThatFitTogetherAndWhatInfoTells) {
    const Json report =
        jsonOf({"bench", kDigitsModel, "--runs", "3", "--json", "--layers", "--sort", "time", "--batch", "2"});
    const Json info = jsonOf({"info", kDigitsModel, "--batch", "2", "--json"});
    const Json& seconds = report["seconds"];
    EXPECT_LE(seconds["minimum"], seconds["median"]);
    EXPECT_LE(seconds["median"], seconds["p99"]);
    EXPECT_NEAR(report["imagesPerSecond"].get<double>() * seconds["mean"].get<double>(), 2, 1e-9);
    double shares = 0, last = 1;
    std::int64_t multiplyAdds = 0;
    ASSERT_EQ(report["layers"].size(), 11u);
    for (const Json& layer : report["layers"]) {
        EXPECT_LE(layer["share"], last);
        last = layer["share"];
        shares += last;
        multiplyAdds += layer["multiplyAdds"].get<std::int64_t>();
        const Json& operation = info["operations"][layer["record"].get<std::size_t>() - 1];
        for (const char* key : {"operation", "details", "multiplyAdds"}) EXPECT_EQ(layer[key], operation[key]) << layer;
    }
    EXPECT_NEAR(shares, 1, 1e-9);
    EXPECT_EQ(multiplyAdds, info["cost"]["multiplyAdds"]);
    for (const Json& kind : report["kinds"]) shares -= kind["share"].get<double>();
    EXPECT_NEAR(shares, 0, 1e-9);
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
        if (event["name"] == "pool") {
            EXPECT_EQ(event["args"]["details"], "2x2, stride 2") << event;
        }
    }
    EXPECT_EQ(runs, 3);
    EXPECT_EQ(layers, 33);
}

TEST(BenchCommand, RefusesArgumentsThatDoNotFit) {
    expectRefused({"bench", kDigitsModel},
                  {{{"--runs", "2", "--seconds", "1"}, "--runs excludes --seconds", 2},
                   {{"--runs", "0"}, "--runs: a whole number from 1 to 10000000, is 0", 2},
                   {{"--seconds", "nan"}, "--seconds: a number above 0, is nan", 2},
                   {{"--trace", ""}, "--trace: a file's name, is empty", 2},
                   {{"--trace", "-", "--json"}, "--trace - and --json both want standard output", 2},
                   {{"--sort", "time"}, "--sort requires --layers", 2},
                   {{"--runs", "1", "--trace", "/no/t"}, "/no/t: cannot be written: No such file or directory"}});
}

}  // namespace
