#include "layers/RawPaddingLayerFactory.h"

#include <algorithm>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawPaddingLayer.h"

RawPaddingLayerFactory::RawPaddingLayerFactory(nolk::TensorX* x, nolk::Padding amounts)
    : PaddingLayerFactory(x, amounts) {
    const nolk::TensorShape& in = input()->shape;
    initOutput({in.n, in.c, in.h + padding.top + padding.bottom, in.w + padding.left + padding.right, 3});
}

void RawPaddingLayerFactory::check() const {
    if (std::min({padding.top, padding.bottom, padding.left, padding.right}) < 0)
        refuse("pad: amounts must not be negative, are %d, %d, %d, %d", padding.top, padding.bottom, padding.left,
               padding.right);
    const nolk::TensorShape& in = input()->shape;
    const nolk::TensorShape& out = output()->shape;
    if (elementCount(out) > 0 && (in.h < 0 || (in.h > 0 && in.w < 0)))
        refuse("pad: input extents must not be negative, are %d x %d", in.h, in.w);
    if (out.h < in.h || out.w < in.w) refuse("pad: the padded extents must fit 32 bits, come to %d x %d", out.h, out.w);
}

std::unique_ptr<Layer> RawPaddingLayerFactory::create() {
    return std::make_unique<RawPaddingLayer>(input()->toTensor(), output()->toTensor(), padding);
}
