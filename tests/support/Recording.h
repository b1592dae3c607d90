// Where a test records operations: a builder, its inputs, and arrays that live until this object goes.
//   Record record = [](Recording& r) { return r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, 4, 3, 3, 3, true));
//   }; Recording r(builder, {builder.input(shape)});  X y = record(r);
// All recordings with one seed give the same calls the same values.
#pragma once

#include <nolk.h>

#include <functional>
#include <utility>
#include <vector>

#include "support/Arrays.h"

using Builder = nolk::RunnerBuilder;
using X = nolk::TensorX*;
using Xs = std::vector<X>;
using Shape = nolk::TensorShape;

class Recording : public Arrays {
public:
    Recording(Builder& builder, Xs inputs, std::uint32_t seed = 1)
        : Arrays(seed), x(std::move(inputs)), builder_(builder) {}
    Builder* operator->() const { return &builder_; }

    Xs x;

private:
    Builder& builder_;
};

using Record = std::function<X(Recording&)>;
