#include "RatioReporter.h"

#include <algorithm>
#include <cstdio>

bool RatioReporter::ReportContext(const Context& context) {
    PrintBasicContext(&GetErrorStream(), context);
    return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred || run.iterations == 0) continue;
        const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
        Series& s = series(run.run_name.function_name);
        s.seconds.push_back(seconds);
        const auto rate = run.counters.find("items_per_second");
        if (rate != run.counters.end()) s.itemsPerIteration = rate->second * seconds;
    }
}

void RatioReporter::printTable(const std::vector<std::string>& names) const {
    std::printf("| | nolk, us | bare, us | nolk / bare | images/s |\n|---|---:|---:|---:|---:|\n");
    for (const std::string& name : names) {
        const Series *nolk = find(name + "/nolk"), *bare = find(name + "/bare");
        if (!nolk || !bare) continue;
        std::printf("| %s | %.0f | %.0f | %.2f |", name.c_str(), nolk->median() * 1e6, bare->median() * 1e6,
                    nolk->median() / bare->median());
        if (nolk->itemsPerIteration > 0) std::printf(" %.0f", nolk->itemsPerIteration / nolk->median());
        std::printf(" |\n");
    }
}

double RatioReporter::Series::median() const {
    std::vector<double> sorted = seconds;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
}

RatioReporter::Series& RatioReporter::series(const std::string& name) {
    for (Series& s : all_)
        if (s.name == name) return s;
    all_.push_back({name, {}, 0});
    return all_.back();
}

const RatioReporter::Series* RatioReporter::find(const std::string& name) const {
    for (const Series& s : all_)
        if (s.name == name) return &s;
    return nullptr;
}
