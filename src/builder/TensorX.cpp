#include "builder/TensorX.h"

#include <algorithm>

#include "builder/shapes.h"
#include "runner/PlainNCHWReader.h"
#include "runner/PlainNCHWWriter.h"

namespace nolk {

void TensorX::setRawTensor(const std::shared_ptr<RawTensor>& raw) {
    rawTensor = raw;
    raw->size = std::max(raw->size, elementCount(shape));
}

std::unique_ptr<NCHWReader> TensorX::createReader() const {
    return std::make_unique<PlainNCHWReader>(rawTensor->data, elementCount(shape));
}

std::unique_ptr<NCHWWriter> TensorX::createWriter() const {
    return std::make_unique<PlainNCHWWriter>(rawTensor->data, elementCount(shape));
}

Tensor TensorX::toTensor() const { return {shape, rawTensor->data}; }

}  // namespace nolk
