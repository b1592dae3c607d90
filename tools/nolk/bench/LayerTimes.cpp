#include "nolk/bench/LayerTimes.h"

#include <algorithm>

#include "nolk/bench/layerMultiplyAdds.h"

LayerTimes::LayerTimes(LoadedModel& model, const std::vector<HostTensor>& inputs)
    : model_(model), inputs_(inputs), sums_(model.runner().layers().size()), now_(sums_.size() + 2) {}

// Every run needs them anew: other tensors share their place in the arena.
void LayerTimes::fillInputs() {
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        const nolk::Tensor place = model_.builder().inputs()[i]->toTensor();
        std::copy(inputs_[i].values.begin(), inputs_[i].values.end(), place.data);
    }
}

void LayerTimes::run() {
    Moments::iterator moment = now_.begin();
    *moment++ = Clock::now();
    fillInputs();
    *moment++ = Clock::now();
    for (const auto& layer : model_.runner().layers()) {
        if (layer) layer->run(model_.runner().scratch());
        *moment++ = Clock::now();
    }
    for (std::size_t i = 0; i < sums_.size(); ++i) sums_[i] += now_[i + 2] - now_[i + 1];
    ++runs_;
    if (moments_.size() < kKept) moments_.push_back(now_);
}

std::vector<LayerTime> LayerTimes::layers() const {
    std::vector<LayerTime> all;
    for (std::size_t i = 0; i < sums_.size(); ++i) {
        const auto& layer = model_.runner().layers()[i];
        const LayerFactory& factory = *model_.builder().factories()[i];
        const double seconds = std::chrono::duration<double>(sums_[i]).count() / std::max(runs_, 1);
        all.push_back({i + 1, layer ? layer->desc : "", factory.output()->shape, layerMultiplyAdds(factory), seconds});
    }
    return all;
}
