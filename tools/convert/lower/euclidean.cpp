#include "convert/lower/euclidean.h"

#include <numeric>

#include "convert/lower/NodeLowering.h"

namespace convert {

int l2normalized(Program& program, int x, float addend) {
    const nolk::TensorShape shape = program.shapeOf(x);
    const int plane = program.resize(program.scalar(addend), shape.h, shape.w, nolk::ResizeMode::nearest,
                                     nolk::ResizeTransMode::halfPixel);
    const int longer = program.concat({x, plane}, nolk::Axis::c);
    return program.slice(program.l2normalize(longer), nolk::Axis::c, 0, shape.c);
}

Placed normalisedAlong(Program& program, const Placed& x, std::size_t axis, float addend) {
    Axes others;
    Dims dims{x.dims()[axis]};
    for (std::size_t i = 0; i < x.rank(); ++i) {
        if (i == axis) continue;
        others.push_back(static_cast<int>(i));
        dims.push_back(x.dims()[i]);
    }
    const int step = arranged(program, x, {{static_cast<int>(axis)}, {}, others});
    std::vector<int> back;
    for (std::size_t i = 0; i < x.rank(); ++i) back.push_back(i == axis ? 0 : static_cast<int>(i < axis ? i + 1 : i));
    return permuted(placed(l2normalized(program, step, addend), dims), back);
}

}  // namespace convert
