// A network that Python records, operation by operation, as a model file.
//   Tensor y = recording->call(10, {x}, {});  recording->finish({y});  recording->file(options);
// The file is what is built later, so a saved network is the one that ran.
#pragma once

#include <nolk_model.h>

#include <memory>
#include <string>
#include <vector>

#include "arrays.h"

class Recording;

// A tensor of a recording, which it keeps alive.
struct Tensor {
    std::shared_ptr<Recording> recording;
    nolk::TensorX* x = nullptr;

    std::vector<int> shape() const;  // of one sample
};

class Recording : public std::enable_shared_from_this<Recording> {
public:
    // A call of the operation with that code, see model/operations.h. Throws TypeError or ValueError for arguments that
    // the operation does not have, and nolk::ModelError once the recording is finished.
    Tensor call(int code, py::handle inputs, const py::sequence& arguments);

    // Names the outputs of the network. Nothing can be recorded afterwards.
    void finish(py::handle outputs);
    bool isFinished() const { return !writer_->bytes().empty(); }

    // The model file in a format, once finished.
    std::vector<unsigned char> file(const nolk::ModelFileOptions& options) const;

    nolk::TensorShape shapeOf(nolk::TensorX* x) const { return writer_->shapeOf(x); }

private:
    std::vector<nolk::TensorX*> own(const std::string& user, py::handle tensors) const;

    nolk::Owned<nolk::ModelWriter> writer_ = nolk::newModelWriter();
};
