// The arrays of a host that runs a network. Every tensor has a heap block of its own size, so that a sanitizer sees an
// access beyond it.
//   HostRun host(inputShapes, outputShapes);  host.fill(hostileValues);  if (host.run(runner)) use(host.outputs());
#pragma once

#include <nolk.h>

#include <cstddef>
#include <memory>
#include <vector>

class HostRun {
public:
    HostRun(const std::vector<nolk::TensorShape>& inputs, const std::vector<nolk::TensorShape>& outputs);

    // Sets element i of every input to value(i). Outputs get `before`, which a run has to overwrite.
    void fill(float (*value)(std::size_t i), float before = 0.0f);

    bool run(nolk::Runner& runner);

    // The same, with the times of its layers if the runner records any.
    bool runTimed(nolk::Runner& runner);

    // Whether the runner rejects tensors that are missing or of other shapes. It prints why.
    bool isHeldToShapes(nolk::Runner& runner);

    const std::vector<nolk::Tensor>& outputs() const { return outputs_.tensors; }

private:
    struct Tensors {
        explicit Tensors(const std::vector<nolk::TensorShape>& shapes);

        std::vector<nolk::Tensor> tensors;
        std::vector<std::unique_ptr<float[]>> storage;
    };

    Tensors inputs_, outputs_;
};

// Values that include NaN, infinities and -0; NaN only; and small finite ones.
float hostileValues(std::size_t i);
float notNumbers(std::size_t i);
float tameValues(std::size_t i);

// The number of a tensor's elements; its extents must be possible.
std::size_t countOf(const nolk::Tensor& tensor);

// Whether all elements have the same bits, apart from the sign and payload of NaN.
bool areSame(const std::vector<nolk::Tensor>& a, const std::vector<nolk::Tensor>& b);

// What the memory of runners that are built from now on holds before their first run, in the builds of fuzzers; zeros
// in other builds. Results must not depend on it.
void setFirstValue(float value);

// Whether two runs on hostile values succeeded, one of them timed.
bool runTwice(nolk::Runner& runner, const std::vector<nolk::TensorShape>& inputs,
              const std::vector<nolk::TensorShape>& outputs);
