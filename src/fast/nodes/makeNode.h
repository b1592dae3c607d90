// The node of each of the builder's factories. Its kind is our own if the shapes are regular, else FastBuiltIn, which
// has the built-in layer's answer to every shape. Convolutions, full connections and LSTMs never become FastBuiltIn,
// because the sums of their built-in layers depend on the processor. readFastGraph fills in the node's inputs, output
// and call. Weights are borrowed from the factory.
#pragma once

#include "fast/FastGraph.h"

class RawActLayerFactory;
class RawBatchNormalizationLayerFactory;
class RawConcatLayerFactory;
class RawConvolutionLayerFactory;
class RawDeConvolutionLayerFactory;
class RawEltwiseLayerFactory;
class RawFullConnectionLayerFactory;
class RawInstanceNormalizationLayerFactory;
class RawL2NormalizationLayerFactory;
class RawLstmLayerFactory;
class RawMatmulLayerFactory;
class RawPaddingLayerFactory;
class RawPoolingLayerFactory;
class RawReductionLayerFactory;
class RawReshapeLayerFactory;
class RawResizeLayerFactory;
class RawSliceLayerFactory;
class RawSoftMaxLayerFactory;
class RawTransposeLayerFactory;

// productNodes.cpp: sums of products
FastNode convolutionNode(const RawConvolutionLayerFactory& f);
FastNode deconvolutionNode(const RawDeConvolutionLayerFactory& f);
FastNode connectionNode(const RawFullConnectionLayerFactory& f);
FastNode matmulNode(const RawMatmulLayerFactory& f);
FastNode lstmNode(const RawLstmLayerFactory& f);

// elementwiseNodes.cpp: single steps
FastNode activationNode(const RawActLayerFactory& f);
FastNode eltwiseNode(const RawEltwiseLayerFactory& f);
FastNode batchNormalizationNode(const RawBatchNormalizationLayerFactory& f);

// planeNodes.cpp: windows, reductions and normalisations
FastNode poolingNode(const RawPoolingLayerFactory& f);
FastNode reductionNode(const RawReductionLayerFactory& f);
FastNode instanceNormalizationNode(const RawInstanceNormalizationLayerFactory& f);
FastNode l2NormalizationNode(const RawL2NormalizationLayerFactory& f);
FastNode softmaxNode(const RawSoftMaxLayerFactory& f);
FastNode resizeNode(const RawResizeLayerFactory& f);

// movingNodes.cpp: elements that only move
FastNode concatNode(const RawConcatLayerFactory& f);
FastNode reshapeNode(const RawReshapeLayerFactory& f);
FastNode sliceNode(const RawSliceLayerFactory& f);
FastNode paddingNode(const RawPaddingLayerFactory& f);
FastNode transposeNode(const RawTransposeLayerFactory& f);
