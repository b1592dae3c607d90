// Element-wise operations on two tensors, with ONNX's broadcasting. nolk repeats the second tensor only, along c, h and
// w; what needs more is repeated beforehand.
#pragma once

#include "convert/lower/NodeLowering.h"

namespace convert {

enum class Binary { add, sub, multiply, divide, max };

// A tensor of the network, or values that are arranged as the other tensor needs them.
struct Operand {
    std::optional<Placed> tensor;
    std::optional<Array> values;

    Dims dims() const { return tensor ? tensor->dims() : values->dims(); }
};

Operand operandOf(NodeLowering& n, std::size_t input);
Operand operandOf(Placed x);
Operand operandOf(Array values);

Placed combined(Program& program, Binary operation, Operand a, Operand b);

// x repeated along axes of extent 1. Throws std::logic_error for dims that x does not broadcast to.
Placed expanded(Program& program, const Placed& x, const Dims& dims);

}  // namespace convert
