// a + b, a - b, a * b, a / b, or a > b ? a : b (so b when one of them is NaN), element by element.
//   a, out [n, c, h, w]; out may be a
//   b      a's shape, or 1 at c, h or w, which is broadcast. The batch is not broadcast.
// If b has a's h and w, but a c that is neither a's nor 1, b is read as one plane per sample. Elements that b does not
// have, for example because only a has a batch above 1, count as 0.
#pragma once

#include "layers/Layer.h"

class RawEltwiseLayer final : public Layer {
public:
    RawEltwiseLayer(nolk::Tensor a, nolk::Tensor b, nolk::Tensor output, EltwiseType type);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return a_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    struct Operation {
        void (*arrays)(int n, float* out, const float* a, const float* b);
        void (*scalar)(int n, float* out, const float* a, float b);
    };

    static const Operation kOperations[];

    void binary(const Operation& operation) const;
    void broadcastSpace(const Operation& operation) const;
    void broadcastChannel(const Operation& operation) const;
    void combine(const Operation& operation, int n, std::ptrdiff_t at, std::int64_t atB) const;
    float elementOfB(std::int64_t at) const;

    nolk::Tensor a_;
    nolk::Tensor b_;
    nolk::Tensor output_;
    EltwiseType type_;
    int countB_;
};
