#include "layers/Layer.h"

#include <cstdarg>
#include <cstdio>

void Layer::run(AlignedMemory<float>&) {}

nolk::Tensor Layer::getInputTensor() const { return {}; }

nolk::Tensor Layer::getOutputTensor() const { return {}; }

Layer* Layer::setDesc(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    desc = text;
    return this;
}
