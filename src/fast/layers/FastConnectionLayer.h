// A full connection: y = x * weight^T + bias, then the steps of the node.
//   in [n, c, 1, 1] in blocks; or plain, of any extents, read as n * groups rows of c / groups elements
//   weights [out, in], out [n, groups * out, 1, 1] plain
#pragma once

#include "fast/layers/FastProductParts.h"
#include "fast/layers/FastSteps.h"

class FastConnectionLayer final : public FastLayer {
public:
    FastConnectionLayer(const FastNode& node, const FastConnection& op, const FastView& input, const FastView& output,
                        const std::vector<FastView>& views);

    // The weights that the layer packs: a row of them for each output, of one group.
    static nolk::Weights weightsOf(const FastConnection& op, const nolk::TensorShape& input);

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    int rows_, outputs_;
    FastProductParts parts_;
    FastSteps steps_;
};
