#include "layers/RawResizeLayerFactory.h"

#include <cstdint>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawResizeLayer.h"

namespace {

// The layer loops over n and c of `walked`, and computes the plane of `other` from them with other's c. Returns whether
// all these planes exist.
bool staysInside(const nolk::TensorShape& walked, const nolk::TensorShape& other) {
    const std::int64_t last = (static_cast<std::int64_t>(walked.n) - 1) * other.c + walked.c;
    return other.n > 0 && other.c > 0 && last <= static_cast<std::int64_t>(other.n) * other.c;
}

}  // namespace

RawResizeLayerFactory::RawResizeLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode,
                                             nolk::ResizeTransMode transMode)
    : ResizeLayerFactory({x}), mode_(mode), transMode_(transMode) {
    initOutput(shape);
}

void RawResizeLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    const nolk::TensorShape& out = output()->shape;
    const bool linear = mode_ == nolk::ResizeMode::linear;
    if (!linear && mode_ != nolk::ResizeMode::nearest) return;
    // Linear interpolation loops over the input's planes, nearest over the output's.
    const nolk::TensorShape& walked = linear ? in : out;
    if (!isRepresentable(out) || walked.n < 1 || walked.c < 1 || out.h < 1 || out.w < 1) return;
    if (in.h < 1 || in.w < 1) refuse("resize: input planes must not be empty, are %d x %d", in.h, in.w);
    if (!staysInside(walked, linear ? out : in))
        refuse("resize: output must have the input's %d samples and %d channels, has %d and %d", in.n, in.c, out.n,
               out.c);
}

std::unique_ptr<Layer> RawResizeLayerFactory::create() {
    return std::make_unique<RawResizeLayer>(input()->toTensor(), output()->toTensor(), mode_, transMode_);
}
