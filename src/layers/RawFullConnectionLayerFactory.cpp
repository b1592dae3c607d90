#include "layers/RawFullConnectionLayerFactory.h"

#include <cstdint>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawFullConnectionLayer.h"
#include "layers/weights.h"
#include "math/quotient.h"

RawFullConnectionLayerFactory::RawFullConnectionLayerFactory(nolk::TensorX* x, nolk::Weights weights)
    : FullConnectionLayerFactory({x}), weights_(weights) {
    initOutput({input()->shape.n, weights_.groups * weights_.outChannels, 1, 1, 1});
}

void RawFullConnectionLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    const nolk::TensorShape& out = output()->shape;
    if (!isRepresentable(in) || !isRepresentable(out) || elementCount(out) == 0) return;

    const int rowInputs = quotient(in.c, weights_.groups);
    checkWeights("fullConnect", weights_, rowInputs > 0);
    const std::int64_t needed = static_cast<std::int64_t>(rowInputs) * weights_.outChannels;
    if (needed > weightCount(weights_))
        refuse("fullConnect: weights expect %d inputs per group, input has %d",
               quotient(weightCount(weights_), weights_.outChannels), rowInputs);
    if (rowInputs > 0 && elementCount(in) == 0)
        refuse("fullConnect: values of %d channels expected, input is [%d, %d, %d, %d]", in.c, in.n, in.c, in.h, in.w);
}

std::unique_ptr<Layer> RawFullConnectionLayerFactory::create() {
    return std::make_unique<RawFullConnectionLayer>(input()->toTensor(), output()->toTensor(), weights_, givenArrays);
}
