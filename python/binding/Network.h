// A loaded network with numpy arrays as its tensors.
//   Network net(bytes, size, options);  net.run(inputs, outputs);  net.close();
// All calls need Python's global lock. Loading, running and freeing release it while the library works.
// A plain network runs one call at a time and refuses a second; a shared one takes any number. A call that is under way
// keeps the runner, so close returns at once and the last user frees it.
#pragma once

#include <nolk_model.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Unlocked.h"
#include "arrays.h"

struct LoadOptions {
    int batch = 1;
    std::optional<std::string> implementation;  // with settings; without, the fast one where it is installed
    bool shared = false;
    nolk::ModelLimits limits;
};

class Network {
public:
    // Throws nolk::ModelError and what nolk::loadModel throws.
    Network(const void* data, std::size_t size, const LoadOptions& options);
    ~Network() { close(); }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    // Runs the network on the arrays, in chunks of the batch. All arrays have the same number of samples, any. Between
    // chunks it handles signals, and throws what their handlers raise.
    void run(py::handle inputList, py::handle outputList);

    // The same into new arrays: one array for one output, else a tuple.
    py::object call(const py::args& inputArrays);

    void close();
    bool isClosed() const { return !loaded_; }

    const std::vector<ArrayForm>& inputs() const { return inputs_; }
    const std::vector<ArrayForm>& outputs() const { return outputs_; }
    const std::string& implementation() const { return implementation_; }
    int batch() const { return batch_; }
    bool isShared() const { return shared_; }
    bool mixesSamples() const { return !isDivisible_; }

private:
    struct Loaded;
    using Data = std::vector<float*>;  // of each input or output

    struct Samples {
        Data in, out;
        py::ssize_t n;
    };

    void addForms(const nolk::ModelInfo& info);
    std::shared_ptr<Loaded> newLoaded(const void* data, std::size_t size, const LoadOptions& options) const;
    std::shared_ptr<Loaded> requireLoaded() const;
    std::vector<py::array> requireInputs(py::handle list) const;
    py::ssize_t sampleCount(const std::vector<py::array>& inputs) const;
    void runArrays(std::shared_ptr<Loaded> loaded, const std::vector<py::array>& inputs,
                   const std::vector<py::array>& outputs) const;
    void runShared(Loaded& loaded, const Samples& samples, Unlocked& unlocked) const;
    void runAlone(Loaded& loaded, const Samples& samples, Unlocked& unlocked) const;
    void runLast(Loaded& loaded, const Samples& samples, py::ssize_t first) const;

    // Fixed after construction.
    int batch_;
    bool shared_;
    std::string implementation_;
    std::vector<ArrayForm> inputs_, outputs_;
    bool isDivisible_ = true;  // into chunks of the batch, whose samples are independent

    std::shared_ptr<Loaded> loaded_;  // null once closed
};
