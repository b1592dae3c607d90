#include "nolk/bench/layerMultiplyAdds.h"

#include "layers/ConvolutionLayerFactory.h"
#include "layers/MatmulLayerFactory.h"
#include "layers/RawDeConvolutionLayerFactory.h"
#include "layers/RawFullConnectionLayerFactory.h"
#include "layers/RawLstmLayerFactory.h"
#include "inspect/multiplyAdds.h"

std::int64_t layerMultiplyAdds(const LayerFactory& factory) {
    if (const auto* conv = dynamic_cast<const ConvolutionLayerFactory*>(&factory))
        return multiplyAdds::ofConvolve(conv->output()->shape, conv->weights);
    if (const auto* deconv = dynamic_cast<const RawDeConvolutionLayerFactory*>(&factory))
        return multiplyAdds::ofDeConvolve(deconv->input()->shape, deconv->weights());
    if (const auto* fc = dynamic_cast<const RawFullConnectionLayerFactory*>(&factory))
        return multiplyAdds::ofFullConnect(fc->input()->shape, fc->weights());
    if (const auto* lstm = dynamic_cast<const RawLstmLayerFactory*>(&factory))
        return multiplyAdds::ofLstm(lstm->input()->shape, lstm->weights());
    if (const auto* matmul = dynamic_cast<const MatmulLayerFactory*>(&factory))
        return multiplyAdds::ofMatMul(matmul->inputs[0]->shape, matmul->inputs[1]->shape);
    return 0;
}
