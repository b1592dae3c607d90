// Nodes that run the built-in layer, for shapes or settings that our own layers do not take.
//   return nodeWith(builtIn<RawPaddingLayer>(factory, factory.padding));
// The layer is made when the runner is, or later, so it gets copies of its arguments. Copies of vectors share their
// values.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "builder/LayerFactory.h"
#include "builder/TensorX.h"
#include "builder/shapes.h"
#include "fast/FastGraph.h"
#include "layers/vectors.h"

inline FastNode nodeWith(FastOperation operation) { return {std::move(operation), {}, -1, {}, -1}; }

template <typename Argument>
double floatsOf(const Argument&) {
    return 0.0;
}
inline double floatsOf(const ChannelVector& vector) { return vector.storedSize(); }

// args: what the layer's constructor takes after the input and the output.
template <typename LayerType, typename... Args>
FastBuiltIn builtIn(const LayerFactory& factory, Args... args) {
    return {[args...](const std::vector<nolk::Tensor>& in, nolk::Tensor out) -> std::unique_ptr<Layer> {
                return std::make_unique<LayerType>(in[0], out, args...);
            },
            elementCount(factory.output()->shape), (0.0 + ... + floatsOf(args))};
}

// The same with two inputs.
template <typename LayerType, typename... Args>
FastBuiltIn builtInOfTwo(const LayerFactory& factory, Args... args) {
    return {[args...](const std::vector<nolk::Tensor>& in, nolk::Tensor out) -> std::unique_ptr<Layer> {
                return std::make_unique<LayerType>(in[0], in[1], out, args...);
            },
            elementCount(factory.output()->shape)};
}
