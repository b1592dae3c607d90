#include "layers/RawReshapeLayerFactory.h"

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawReshapeLayer.h"

RawReshapeLayerFactory::RawReshapeLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout)
    : ReshapeLayerFactory({x}), layout_(layout) {
    initOutput(shape);
}

void RawReshapeLayerFactory::check() const {
    const nolk::TensorShape& out = output()->shape;
    if (layout_ != nolk::TensorLayout::nhwc || !isRepresentable(out)) return;
    if (elementCount(out) < elementCount(input()->shape))
        refuse("reshape: output must hold the input's %d elements, holds %d", elementCount(input()->shape),
               elementCount(out));
}

void RawReshapeLayerFactory::connect() {
    if (canInplace() && layout_ == nolk::TensorLayout::nchw)
        output()->setRawTensor(input()->rawTensor);
    else
        output()->setRawTensor(std::make_shared<RawTensor>());
}

std::unique_ptr<Layer> RawReshapeLayerFactory::create() {
    return std::make_unique<RawReshapeLayer>(input()->toTensor(), output()->toTensor(), layout_);
}
