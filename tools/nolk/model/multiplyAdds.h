// Multiply-adds of one run of an operation, by the usual convention: one for each product that its definition sums up,
// taps in the padding included, biases not. Operations that are not named here count none.
//   convolve     n * groups * outChannels * outH * outW * inChannels * kernelH * kernelW
//   deConvolve   n * c * h * w * outChannels * kernelH * kernelW
//   fullConnect  n * groups * outChannels * (c / groups), whatever else the weights have room for
//   matMul       n * c * h * w * b.w
//   lstm         n * c * h * directions * 4 * hiddenSize * (inputSize + hiddenSize)
// The shapes may be ones that cannot be: a negative extent counts as 0, and counts stop at 2^63 - 1.
#pragma once

#include <nolk.h>

#include <cstdint>

namespace multiplyAdds {

std::int64_t ofConvolve(const nolk::TensorShape& out, const nolk::Weights& weights);
std::int64_t ofDeConvolve(const nolk::TensorShape& in, const nolk::Weights& weights);
std::int64_t ofFullConnect(const nolk::TensorShape& in, const nolk::Weights& weights);
std::int64_t ofMatMul(const nolk::TensorShape& a, const nolk::TensorShape& b);
std::int64_t ofLstm(const nolk::TensorShape& in, const nolk::LstmWeights& weights);

}  // namespace multiplyAdds
