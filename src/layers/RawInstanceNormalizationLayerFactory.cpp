#include "layers/RawInstanceNormalizationLayerFactory.h"

#include <algorithm>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawInstanceNormalizationLayer.h"

namespace {

std::vector<float> copied(const nolk::Vector& v) {
    if (!v.data || v.count <= 0) return {};
    return {v.data, v.data + v.count};
}

}  // namespace

RawInstanceNormalizationLayerFactory::RawInstanceNormalizationLayerFactory(nolk::TensorX* x, const nolk::Vector& scale,
                                                                           const nolk::Vector& bias, float epsilon)
    : InstanceNormalizationLayerFactory({x}), scale_(copied(scale)), bias_(copied(bias)), epsilon_(epsilon) {
    initOutput(input()->shape);
}

void RawInstanceNormalizationLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    const std::size_t available = std::min(scale_.size(), bias_.size());
    if (elementCount(in) > 0 && available < static_cast<std::size_t>(in.c))
        refuse("instanceNormalization: input has %d channels, scale has %d, bias %d", in.c,
               static_cast<int>(scale_.size()), static_cast<int>(bias_.size()));
}

std::unique_ptr<Layer> RawInstanceNormalizationLayerFactory::create() {
    return std::make_unique<RawInstanceNormalizationLayer>(input()->toTensor(), output()->toTensor(), scale_, bias_,
                                                           epsilon_);
}
