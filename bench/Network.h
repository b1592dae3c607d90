// A recorded network with random inputs, as one side of a comparison.
//   auto net = std::make_shared<Network>(shapes, [](nolk::RunnerBuilder& b, auto& x) { return b.relu(x[0]); });
//   net->run();  net->output();
// Weights that the function passes to the builder must live until the constructor has returned.
#pragma once

#include <nolk.h>

#include <functional>
#include <vector>

class Network {
public:
    using Recording = std::function<nolk::TensorX*(nolk::RunnerBuilder&, const std::vector<nolk::TensorX*>& inputs)>;

    Network(const std::vector<nolk::TensorShape>& inputs, const Recording& record);
    ~Network() { runner_->destroy(); }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;

    void run() { runner_->run(in_.data(), static_cast<int>(in_.size()), &out_, 1); }

    const std::vector<float>& input(std::size_t i) const { return inputs_[i]; }
    const std::vector<float>& output() const { return output_; }
    nolk::TensorShape outputShape() const { return out_.shape; }

private:
    std::vector<std::vector<float>> inputs_;
    std::vector<float> output_;
    std::vector<nolk::Tensor> in_;
    nolk::Tensor out_;
    nolk::Runner* runner_;
};
