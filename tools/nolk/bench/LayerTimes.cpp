#include "nolk/bench/LayerTimes.h"

#include <stdexcept>

LayerTimes::LayerTimes(const Network& network, const std::string& implementation)
    : network_(network), runner_(nolk::layeredRunnerOf(network.runner.get())) {
    if (!runner_) throw std::runtime_error("the implementation " + implementation + " does not describe its layers");
    sums_.resize(static_cast<std::size_t>(runner_->layerCount()));
    now_.resize(sums_.size() + 2);
}

void LayerTimes::run(std::vector<HostTensor>& inputs, std::vector<HostTensor>& outputs) {
    std::vector<nolk::Tensor> in = views(inputs), out = views(outputs);
    if (!runner_->runTimed(in.data(), static_cast<int>(in.size()), out.data(), static_cast<int>(out.size()),
                           now_.data()))
        throw std::runtime_error("the run failed");
    for (std::size_t i = 0; i < sums_.size(); ++i) sums_[i] += now_[i + 2] - now_[i + 1];
    ++runs_;
    if (timestamps_.size() < kKept) timestamps_.push_back(now_);
}

std::vector<LayerTime> LayerTimes::layers() const {
    std::vector<LayerTime> all;
    for (std::size_t i = 0; i < sums_.size(); ++i) {
        const nolk::LayerDescription layer = runner_->layer(static_cast<std::int32_t>(i));
        const double seconds = 1e-9 * static_cast<double>(sums_[i]) / static_cast<double>(runs_);
        all.push_back({i + 1, layer.kind, layer.output, operationOf(layer), seconds});
    }
    return all;
}

const nolk::ModelOperation* LayerTimes::operationOf(const nolk::LayerDescription& layer) const {
    const auto& operations = network_.info.operations;
    const bool isKnown = layer.call >= 0 && static_cast<std::size_t>(layer.call) < operations.size();
    return isKnown ? &operations[static_cast<std::size_t>(layer.call)] : nullptr;
}
