#include "compare.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

std::vector<std::string> names;

void requireSameResult(const std::string& name, const std::vector<float>& a, const std::vector<float>& b,
                       float tolerance) {
    bool same = a.size() == b.size();
    for (std::size_t i = 0; same && i < a.size(); ++i)
        same = std::fabs(a[i] - b[i]) <= tolerance * (1.0f + std::fabs(b[i]));
    if (same) return;
    std::fprintf(stderr, "%s: the two do not compute the same\n", name.c_str());
    std::exit(1);
}

void add(const std::string& name, const std::function<void()>& run, int items) {
    benchmark::RegisterBenchmark(name.c_str(), [run, items](benchmark::State& state) {
        for (auto _ : state) {
            run();
            benchmark::ClobberMemory();
        }
        if (items > 0) state.SetItemsProcessed(state.iterations() * items);
    })->UseRealTime();
}

}  // namespace

void compare(const std::string& name, const Contestant& nolk, const Contestant& bare, float tolerance, int items) {
    if (nolk.output && bare.output) {
        nolk.run();
        bare.run();
        requireSameResult(name, *nolk.output, *bare.output, tolerance);
    }
    names.push_back(name);
    add(name + "/nolk", nolk.run, items);
    add(name + "/bare", bare.run, items);
}

const std::vector<std::string>& comparedNames() { return names; }

std::vector<float> randomFloats(std::size_t count) {
    std::uint32_t state = 1;
    std::vector<float> values(count);
    for (float& v : values) {
        state = state * 1664525u + 1013904223u;
        v = static_cast<float>(state >> 8) / 8388608.0f - 1.0f;
    }
    return values;
}
