// The list of all operations but inputs and constants, for tests that record every one of them.
//   for (const OperationCase& o : everyOperation(shape)) outputs.push_back(o.record(recording));
// The recording's inputs are two tensors of the shape, x[0] at least.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "support/Recording.h"

struct OperationCase {
    std::string name;
    bool isFixed;       // the bits of the result are the same on every processor
    bool mayBeRefused;  // with extents below 0, because it would read or write beyond its tensors
    Record record;
};

inline std::vector<OperationCase> everyOperation(const Shape& s) {
    using nolk::Axis, nolk::BasicOp, nolk::ResizeMode, nolk::ResizeTransMode;
    const int c = std::abs(s.c), w = std::abs(s.w);
    std::vector<OperationCase> all;
    const auto harmless = [&](const char* name, Record record) { all.push_back({name, true, false, record}); };
    const auto refusable = [&](const std::string& name, Record record) { all.push_back({name, true, true, record}); };
    harmless("relu", [](Recording& r) { return r->relu(r.x[0]); });
    harmless("abs", [](Recording& r) { return r->abs(r.x[0]); });
    harmless("clip", [](Recording& r) { return r->clip(r.x[0], -0.5f, 0.25f); });
    harmless("leakyRelu", [](Recording& r) { return r->leakyRelu(r.x[0], 0.1f); });
    harmless("hardSigmoid", [](Recording& r) { return r->hardSigmoid(r.x[0], 0.2f, 0.3f); });
    harmless("prelu", [c](Recording& r) { return r->prelu(r.x[0], r.reals(c), c); });
    harmless("add", [](Recording& r) { return r->add(r.x[0], r.x[1]); });
    harmless("sub", [](Recording& r) { return r->sub(r.x[1], r.x[0]); });
    harmless("multiply", [](Recording& r) { return r->multiply(r.x[0], r.x[1]); });
    harmless("divide", [](Recording& r) { return r->divide(r.x[0], r.x[1]); });
    harmless("max", [](Recording& r) { return r->max(r.x[1], r.x[0]); });
    harmless("maxPool", [](Recording& r) { return r->maxPool(r.x[0], {2, 3}, {0, 1, 2, 3}, {2, 1}); });
    harmless("avgPool", [](Recording& r) { return r->avgPool(r.x[0], {3, 2}, {0, 1, 1, 0}, {1, 2}); });
    harmless("avgPool, wide border", [](Recording& r) { return r->avgPool(r.x[0], {1, 1}, {3, 3, 3, 3}, {1, 1}); });
    refusable("pad", [](Recording& r) { return r->pad(r.x[0], {3, 4, 5, 255}); });
    harmless("batchNormalize", [c](Recording& r) {
        const nolk::Vector scale = r.vector(c), bias = r.vector(c), mean = r.vector(c);
        return r->batchNormalize(r.x[0], scale, bias, mean, r.positive(c), 0.001f);
    });
    harmless("instanceNormalization", [](Recording& r) { return r->instanceNormalization(r.x[0], 0.01f); });
    harmless("instanceNormalization, scaled", [c](Recording& r) {
        const nolk::Vector scale = r.vector(c);
        return r->instanceNormalization(r.x[0], scale, r.vector(c), 0.01f);
    });
    harmless("l2normalize", [](Recording& r) { return r->l2normalize(r.x[0]); });
    harmless("transpose", [](Recording& r) { return r->transpose(r.x[0], {{0, 2, 3, 1}}); });
    harmless("slice", [](Recording& r) { return r->slice(r.x[0], {-1, 1, 20, 3}); });
    harmless("reshape", [s](Recording& r) {
        return r->reshape(r.x[0], {s.n, s.c * s.h * s.w, 1, 1, 1}, nolk::TensorLayout::nhwc);
    });
    const Shape reduced[] = {{s.n, 1, 1, 1, 3}, {s.n, 1, s.h, s.w, 3}, {s.n, s.c, 1, s.w, 3}, {s.n, s.c, s.h, 1, 3}};
    const BasicOp reductions[] = {BasicOp::mean, BasicOp::maximum, BasicOp::sum, BasicOp::minimum};
    for (int i = 0; i < 4; ++i)
        refusable("reduce " + std::to_string(i),
                  [=](Recording& r) { return r->reduce(r.x[0], reduced[i], reductions[i]); });
    const auto resize = [&](const char* name, int height, int width, ResizeMode mode, ResizeTransMode trans) {
        refusable(name, [=](Recording& r) { return r->resize(r.x[0], {s.n, s.c, height, width, 3}, mode, trans); });
    };
    resize("resize nearest", 12, 10, ResizeMode::nearest, ResizeTransMode::halfPixel);
    resize("resize half-pixel", 7, 33, ResizeMode::linear, ResizeTransMode::halfPixel);
    resize("resize align-corners", 31, 9, ResizeMode::linear, ResizeTransMode::alignCorners);
    harmless("matMul", [](Recording& r) { return r->matMul(r.x[0], r->transpose(r.x[1], {{0, 1, 3, 2}})); });
    refusable("matMul swapped", [](Recording& r) { return r->matMul(r.x[1], r->transpose(r.x[0], {{0, 1, 3, 2}})); });
    for (const Axis axis : {Axis::n, Axis::c, Axis::h, Axis::w})
        for (const std::size_t place : {0, 1})
            refusable("concat " + std::to_string(static_cast<int>(axis)), [=](Recording& r) {
                X parts[] = {r.x[1], r.x[1], r.x[1]};
                parts[place] = r.x[0];
                return r->concat(parts, 3, axis);
            });
    harmless("deConvolve", [c](Recording& r) {
        return r->deConvolve(r.x[0], {1, 0, 1, 0}, {2, 3}, {1, 1}, r.weights(1, 3, c, 3, 2, true));
    });

    const std::size_t fixed = all.size();
    harmless("sigmoid", [](Recording& r) { return r->sigmoid(r.x[0]); });
    harmless("exp", [](Recording& r) { return r->exp(r.x[0]); });
    harmless("tanh", [](Recording& r) { return r->tanh(r.x[0]); });
    for (const Axis axis : {Axis::c, Axis::h, Axis::w})
        harmless("softmax", [=](Recording& r) { return r->softmax(r.x[0], axis); });
    refusable("convolve", [c](Recording& r) {
        return r->convolve(r.x[0], {3, 4, 5, 6}, {2, 1}, {1, 2}, r.weights(c, 3, 1, 2, 3, true));
    });
    refusable("fullConnect",
              [c](Recording& r) { return r->fullConnect(r.x[0], r.weights(1, 7, c, 1, 1, true, true)); });
    refusable("lstm", [w](Recording& r) {
        return r->lstm(r.x[0], {nolk::Direction::both, 2, w, 3, r.reals(24 * w), r.reals(72), r.reals(48), true});
    });
    for (std::size_t i = fixed; i < all.size(); ++i) all[i].isFixed = false;
    return all;
}
