#include "layers/RawLstmLayerFactory.h"

#include <algorithm>
#include <climits>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawLstmLayer.h"

RawLstmLayerFactory::RawLstmLayerFactory(nolk::TensorX* x, const nolk::LstmWeights& weights)
    : LstmLayerFactory({x}), weights_(weights) {
    const nolk::TensorShape& in = input()->shape;
    initOutput({in.n, in.c, in.h, weights.numDirections * weights.hiddenSize, 3});
}

void RawLstmLayerFactory::check() const {
    const nolk::LstmWeights& w = weights_;
    if (w.numDirections != 1 && w.numDirections != 2)
        refuse("lstm: directions must be 1 or 2, are %d", w.numDirections);
    if (w.hiddenSize < 0) refuse("lstm: hidden size must not be negative, is %d", w.hiddenSize);
    if (4.0 * w.numDirections * w.hiddenSize * std::max({w.inputSize, w.hiddenSize, 2}) > INT_MAX)
        refuse("lstm: weights must hold fewer than 2^31 floats, input size is %d, hidden size %d", w.inputSize,
               w.hiddenSize);

    const nolk::TensorShape& in = input()->shape;
    if (elementCount(output()->shape) == 0) return;
    // Steps are inputSize floats apart, whatever the input's width is, so only the end of the last step must exist.
    if (static_cast<double>(in.n) * in.h * w.inputSize > elementCount(in))
        refuse("lstm: weights expect %d features, input has %d", w.inputSize, in.w);
    if ((w.inputSize > 0 && !w.inputWeights) || !w.recurrentWeights) refuse("lstm: weights must not be null");
}

std::unique_ptr<Layer> RawLstmLayerFactory::create() {
    return std::make_unique<RawLstmLayer>(input()->toTensor(), output()->toTensor(), weights_);
}
