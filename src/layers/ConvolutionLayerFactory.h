#pragma once

#include "builder/LayerFactory.h"

class BatchNormalizationLayerFactory;
class PaddingLayerFactory;

// What fusion needs of a convolution. It may absorb a batch normalisation before or after it, and a zero padding before
// it; builder/fusion.cpp has the rules. Absorbing a batch normalisation changes the caller's weight array.
class ConvolutionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    LayerFactory* fuse() override;
    void absorbPad(PaddingLayerFactory* pad);
    void absorbPreBn(BatchNormalizationLayerFactory* bn);
    void absorbBn(BatchNormalizationLayerFactory* bn);

    nolk::Padding padding;
    nolk::Weights weights;         // the caller owns its arrays until create, except fusedBias
    std::vector<float> fusedBias;  // weights.bias points here after absorbing a batch normalisation

private:
    bool canAbsorbPreBn(const BatchNormalizationLayerFactory& bn) const;
    double foldPreBn(const std::vector<double>& factors, const std::vector<double>& addends, int o, float*& w) const;
};
