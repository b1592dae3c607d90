// Collects the repetitions of every NAME/nolk and NAME/bare and prints one line for each NAME: the median times, their
// ratio and, if items are counted, nolk's items per second.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

class RatioReporter final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;

    // Prints a table in Markdown after all runs, with a line for each name that ran.
    void printTable(const std::vector<std::string>& names) const;

private:
    struct Series {
        std::string name;
        std::vector<double> seconds;  // of one iteration, for each repetition
        double itemsPerIteration = 0;

        double median() const;
    };

    Series& series(const std::string& name);
    const Series* find(const std::string& name) const;

    std::vector<Series> all_;
};
