// Records a small network from a fuzzer's choices: any operation of the table, with arguments that suit its inputs more
// often than not.
//   Network network(choose, 1);  std::vector<nolk::TensorX*> outputs = network.record(*builder);
// Every call is one that nolk.h allows: arrays are as long as their arguments say, in blocks of their own. A field of a
// type that is not known here does not compile. The arrays live as long as the Network.
#pragma once

#include <nolk.h>

#include <memory>
#include <vector>

#include "fuzz/Choices.h"
#include "model/Operation.h"

class Network {
public:
    Network(Choices& choose, int batch) : choose_(choose), batch_(batch) {}

    // Returns the outputs. They may be null where an operation had no input, and there may be none.
    std::vector<nolk::TensorX*> record(nolk::RunnerBuilder& builder);

    // An argument of one type for an operation on a tensor of shape x. The values are not valid for every operation.
    template <typename T>
    T make(const nolk::TensorShape& x);

private:
    void recordOperation(nolk::RunnerBuilder& builder);
    nolk::TensorX* pick();
    nolk::Weights weights(const nolk::TensorShape& x, bool shared);
    int small(int most);
    int channels(int most);
    float* floats(std::int64_t count);

    Choices& choose_;
    int batch_;
    bool fits_ = true;  // whether the arrays of the current operation can be made
    std::vector<nolk::TensorX*> tensors_;
    std::vector<std::unique_ptr<float[]>> arrays_;
};
