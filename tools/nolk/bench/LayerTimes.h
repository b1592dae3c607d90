// Runs a network layer by layer, and notes when each began and ended. It does what a runner does for the host's
// tensors, apart from the outputs, which it leaves in the arena.
//   LayerTimes times(model, inputs);  times.run();  times.run();  times.layers();
// The model and the inputs must outlive it. The model must have been run before: scratch grows in the first run.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "nolk/model/HostTensor.h"
#include "nolk/model/LoadedModel.h"

struct LayerTime {
    std::size_t number;  // in execution order, from 1
    std::string kind;
    nolk::TensorShape output;
    std::int64_t multiplyAdds;  // 0 when they are not what the layer's work is
    double seconds;             // mean of the runs
};

class LayerTimes {
public:
    using Clock = std::chrono::steady_clock;

    // A run's moments: its start, the first layer's start, then every layer's end.
    using Moments = std::vector<Clock::time_point>;

    LayerTimes(LoadedModel& model, const std::vector<HostTensor>& inputs);

    void run();

    // In execution order.
    std::vector<LayerTime> layers() const;

    // Of the first runs, kKept at most.
    const std::vector<Moments>& moments() const { return moments_; }

private:
    static constexpr std::size_t kKept = 10;

    void fillInputs();

    LoadedModel& model_;
    const std::vector<HostTensor>& inputs_;
    int runs_ = 0;
    std::vector<Clock::duration> sums_;  // of each layer
    Moments now_;
    std::vector<Moments> moments_;
};
