// A tensor of a network that is being built: its shape, its producer, its consumers and its storage.
//   TensorX x({1, 3, 8, 8, 3}, false);  x.setRawTensor(std::make_shared<RawTensor>());  Tensor view = x.toTensor();
// Owned by the factory whose output it is, or by the builder (inputs and constants). producer and consumers are
// borrowed and live as long as the builder. Readers, writers and views copy the address, so create them after memory
// planning.
#pragma once

#include <nolk.h>

#include <memory>
#include <vector>

#include "memory/RawTensor.h"
#include "runner/NCHWReader.h"
#include "runner/NCHWWriter.h"

class LayerFactory;

namespace nolk {

class TensorX {
public:
    TensorX(TensorShape tensorShape, bool constant) : shape(tensorShape), isConst(constant) {}
    virtual ~TensorX() = default;
    TensorX(const TensorX&) = delete;
    TensorX& operator=(const TensorX&) = delete;

    // Makes raw the storage of this tensor. Increases raw's size if it is too small; never reduces it, because other
    // tensors may share it.
    virtual void setRawTensor(const std::shared_ptr<RawTensor>& raw);

    virtual std::unique_ptr<NCHWReader> createReader() const;
    virtual std::unique_ptr<NCHWWriter> createWriter() const;

    Tensor toTensor() const;

    TensorShape shape;
    bool isConst;  // made by constTensor
    std::shared_ptr<RawTensor> rawTensor;
    LayerFactory* producer = nullptr;      // null for inputs and constants
    std::vector<LayerFactory*> consumers;  // in order of creation; twice for one that takes the tensor twice
};

}  // namespace nolk
