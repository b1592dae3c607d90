// Runs a network layer by layer, and records when each began and ended.
//   LayerTimes times(network, "NolkRaw");  times.run(inputs, outputs);  times.layers();
// The network must outlive it.
#pragma once

#include <nolk_layers.h>

#include <cstdint>
#include <string>
#include <vector>

#include "nolk/model/HostTensor.h"
#include "nolk/model/Network.h"

struct LayerTime {
    std::size_t number;  // in execution order, from 1
    std::string kind;
    nolk::TensorShape output;
    const nolk::ModelOperation* operation;  // in the network's info; null if unknown
    double seconds;                         // mean of the runs

    std::int64_t multiplyAdds() const { return operation ? operation->multiplyAdds : 0; }
};

class LayerTimes {
public:
    // The timestamps of one run, as nolk::LayeredRunner records them.
    using Timestamps = std::vector<std::int64_t>;

    // Throws std::runtime_error if the network's runner is not a nolk::LayeredRunner.
    LayerTimes(const Network& network, const std::string& implementation);

    void run(std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs);

    // The layers in execution order; call it after at least one run. The result points into the network.
    std::vector<LayerTime> layers() const;

    // The timestamps of the first runs, at most kKept.
    const std::vector<Timestamps>& timestamps() const { return timestamps_; }

private:
    static constexpr std::size_t kKept = 10;

    const nolk::ModelOperation* operationOf(const nolk::LayerDescription& layer) const;

    const Network& network_;
    nolk::LayeredRunner* runner_;
    std::int64_t runs_ = 0;
    std::vector<std::int64_t> sums_;  // of each layer, in nanoseconds
    Timestamps now_;
    std::vector<Timestamps> timestamps_;
};
