// Compares nolk, used through its public header, with plain code for the same arithmetic; see scripts/bench.
#include <benchmark/benchmark.h>

#include "RatioReporter.h"
#include "benches.h"
#include "compare.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    compareConvolutions();
    compareLayers();
    compareDigits();
    compareFastKernels();
    compareFastNetworks();
    compareLoads();
    comparePlanning();
    compareBatching();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printTable(comparedNames());
}
