#pragma once

#include "builder/LayerFactory.h"

class BatchNormalizationLayerFactory;
class PaddingLayerFactory;

// A convolution, as fusion sees it: it takes over a batch normalisation on either side and a zero padding in front. The
// rules stand in builder/fusion.cpp. Folding rewrites the weight array, which is the caller's.
class ConvolutionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    LayerFactory* fuse() override;
    void absorbPad(PaddingLayerFactory* pad);
    void absorbPreBn(BatchNormalizationLayerFactory* bn);
    void absorbBn(BatchNormalizationLayerFactory* bn);

    nolk::Padding padding;
    nolk::Weights weights;         // arrays: the caller's until create, but for a folded bias
    std::vector<float> fusedBias;  // weights.bias points here after folding a batch normalisation

private:
    bool canAbsorbPreBn(const BatchNormalizationLayerFactory& bn) const;
};
