#include "nolk/model/multiplyAdds.h"

#include "math/quotient.h"
#include "nolk/model/counts.h"

namespace multiplyAdds {

std::int64_t ofConvolve(const nolk::TensorShape& out, const nolk::Weights& weights) {
    return productOf({elementsOf(out), weights.inChannels, weights.kernelH, weights.kernelW});
}

std::int64_t ofDeConvolve(const nolk::TensorShape& in, const nolk::Weights& weights) {
    return productOf({elementsOf(in), weights.outChannels, weights.kernelH, weights.kernelW});
}

std::int64_t ofFullConnect(const nolk::TensorShape& in, const nolk::Weights& weights) {
    return productOf({in.n, weights.groups, weights.outChannels, quotient(in.c, weights.groups)});
}

std::int64_t ofMatMul(const nolk::TensorShape& a, const nolk::TensorShape& b) {
    return productOf({elementsOf(a), b.w});
}

// Four gates, each of a row of the input and a row of the last output.
std::int64_t ofLstm(const nolk::TensorShape& in, const nolk::LstmWeights& weights) {
    return productOf({in.n, in.c, in.h, weights.numDirections, 4, weights.hiddenSize,
                      std::int64_t{weights.inputSize} + weights.hiddenSize});
}

}  // namespace multiplyAdds
