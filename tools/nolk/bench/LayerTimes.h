// Runs a network layer by layer, and notes when each began and ended.
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
    const nolk::ModelOperation* operation;  // of the network's info; null when the runner does not tell it
    double seconds;                         // mean of the runs

    std::int64_t multiplyAdds() const { return operation ? operation->multiplyAdds : 0; }
};

class LayerTimes {
public:
    // The moments of one run, as nolk::LayeredRunner notes them.
    using Moments = std::vector<std::int64_t>;

    // Throws std::runtime_error when the network's runner does not tell its layers.
    LayerTimes(const Network& network, const std::string& implementation);

    void run(std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs);

    // In execution order, after one run at least. Refers to the network.
    std::vector<LayerTime> layers() const;

    // Of the first runs, kKept at most.
    const std::vector<Moments>& moments() const { return moments_; }

private:
    static constexpr std::size_t kKept = 10;

    const nolk::ModelOperation* operationOf(const nolk::LayerDescription& layer) const;

    const Network& network_;
    nolk::LayeredRunner* runner_;
    std::int64_t runs_ = 0;
    std::vector<std::int64_t> sums_;  // of each layer, in nanoseconds
    Moments now_;
    std::vector<Moments> moments_;
};
