#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(RawReshapeLayer, KeepsTheElementsUnderAnyShape) {
    for (const Shape& shape : {Shape{2, 30, 1, 1, 1}, {1, 3, 4, 5, 3}, {1, 3, 2, 2, 3}})
        expectReference({{1, 5, 4, 3, 3}}, [=](Recording& r) {
            return r->abs(r->reshape(r->relu(r.x[0]), shape, nolk::TensorLayout::nchw));
        });
}

TEST(RawReshapeLayer, ReordersToChannelLastWhateverTheOutputsShape) {
    const auto reshape = [](int channels) {
        return [=](Recording& r) { return r->reshape(r.x[0], {1, channels, 1, 1, 1}, nolk::TensorLayout::nhwc); };
    };
    expectReference({{2, 3, 5, 7, 3}}, reshape(210));
    expectReference({{2, 3, 5, 7, 3}}, reshape(300));
    expectRefused({{2, 3, 5, 7, 3}}, "reshape: output", reshape(209));
}

}  // namespace
