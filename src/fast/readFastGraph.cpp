#include "fast/readFastGraph.h"

#include <stdexcept>
#include <type_traits>
#include <unordered_map>

#include "fast/nodes/builtInNode.h"
#include "fast/nodes/makeNode.h"
#include "layers/RawActLayerFactory.h"
#include "layers/RawBatchNormalizationLayerFactory.h"
#include "layers/RawConcatLayerFactory.h"
#include "layers/RawConvolutionLayerFactory.h"
#include "layers/RawDeConvolutionLayerFactory.h"
#include "layers/RawEltwiseLayerFactory.h"
#include "layers/RawFullConnectionLayerFactory.h"
#include "layers/RawInstanceNormalizationLayerFactory.h"
#include "layers/RawL2NormalizationLayerFactory.h"
#include "layers/RawLstmLayerFactory.h"
#include "layers/RawMatmulLayerFactory.h"
#include "layers/RawPaddingLayerFactory.h"
#include "layers/RawPoolingLayerFactory.h"
#include "layers/RawReductionLayerFactory.h"
#include "layers/RawReshapeLayerFactory.h"
#include "layers/RawResizeLayerFactory.h"
#include "layers/RawSliceLayerFactory.h"
#include "layers/RawSoftMaxLayerFactory.h"
#include "layers/RawTransposeLayerFactory.h"

namespace {

// Tries one function after the other; the first whose factory it is makes the node.
template <typename... Factories>
FastNode nodeOf(LayerFactory& factory, FastNode (*... make)(Factories&)) {
    FastNode node = nodeWith(FastElementwise{});
    const bool found = ([&] {
        auto* const typed = dynamic_cast<std::remove_const_t<Factories>*>(&factory);
        if (typed) node = make(*typed);
        return typed != nullptr;
    }() || ...);
    if (!found) throw std::logic_error("NolkFast does not know an operation");
    return node;
}

FastNode nodeOf(LayerFactory& factory) {
    return nodeOf(factory, convolutionNode, deconvolutionNode, connectionNode, matmulNode, lstmNode, activationNode,
                  eltwiseNode, batchNormalizationNode, poolingNode, reductionNode, instanceNormalizationNode,
                  l2NormalizationNode, softmaxNode, resizeNode, concatNode, reshapeNode, sliceNode, paddingNode,
                  transposeNode);
}

}  // namespace

FastGraph readFastGraph(const std::vector<std::unique_ptr<LayerFactory>>& factories,
                        const std::vector<std::unique_ptr<nolk::TensorX>>& inputs,
                        const std::vector<nolk::TensorX*>& outputs) {
    FastGraph graph;
    std::unordered_map<const nolk::TensorX*, int> ids;
    const auto valueOf = [&](const nolk::TensorX* t) {
        const auto [found, isNew] = ids.emplace(t, 0);
        if (isNew) {
            FastValue value;
            value.shape = t->shape;
            if (t->isConst) value.constant = t->rawTensor->data;
            found->second = graph.add(value);
        }
        return found->second;
    };
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        graph.inputs.push_back(valueOf(inputs[i].get()));
        graph.values.back().host = static_cast<int>(i);
    }
    for (const auto& factory : factories) {
        FastNode node = nodeOf(*factory);
        for (const nolk::TensorX* t : factory->inputs) node.inputs.push_back(valueOf(t));
        if (std::holds_alternative<FastElementwise>(node.operation) && node.inputs.size() == 2) {
            node.steps.front().operand = node.inputs.back();
            node.inputs.pop_back();
        }
        node.output = valueOf(factory->output());
        node.call = factory->call;
        graph.nodes.push_back(std::move(node));
    }
    for (const nolk::TensorX* t : outputs) graph.outputs.push_back(valueOf(t));
    return graph;
}
