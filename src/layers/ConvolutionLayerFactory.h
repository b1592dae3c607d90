#pragma once

#include "builder/LayerFactory.h"
#include "builder/foldNormalizations.h"

class BatchNormalizationLayerFactory;
class PaddingLayerFactory;

// What fusion needs of a convolution. It may absorb a batch normalisation before or after it, and a zero padding before
// it; builder/fusion.cpp has the rules. When fuse finds nothing more to absorb, it folds the absorbed batch
// normalisations into the weights and the bias, which changes the caller's weight array.
class ConvolutionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    LayerFactory* fuse() override;
    void absorbPad(PaddingLayerFactory* pad);
    void absorbPreBn(BatchNormalizationLayerFactory* bn);
    void absorbBn(BatchNormalizationLayerFactory* bn);

    nolk::Padding padding;
    nolk::Weights weights;         // the caller owns its arrays until create, except fusedBias
    std::vector<float> fusedBias;  // weights.bias points here after folding a batch normalisation

private:
    bool canAbsorbPreBn(const BatchNormalizationLayerFactory& bn) const;
    LayerFactory* absorbNeighbour();
    void foldAbsorbed();

    std::vector<NormalizationToFold> toFold_;  // absorbed and not folded yet
};
