// A network for a test: records it, builds it, runs it, releases it.
//   Net net;  auto* x = net.input({1, 2, 3, 3, 3}, values);  auto out = net.run({net->relu(x)});  // out[0]: floats
// values are copied; run may be called once per Net, runAgain as often as wanted after it. The back end is the one that
// the program links (backEnd.h), or that of the builder that is given and then owned.
#pragma once

#include <gtest/gtest.h>
#include <nolk.h>

#include <vector>

#include "builder/shapes.h"
#include "support/backEnd.h"

class Net {
public:
    explicit Net(const char* cfg = nullptr) : Net(newBackEndBuilder(cfg)) {}
    explicit Net(nolk::RunnerBuilder* builder) : builder_(builder) {}
    ~Net() {
        if (runner_) runner_->destroy();
        if (builder_) builder_->destroy();
    }
    Net(const Net&) = delete;
    Net& operator=(const Net&) = delete;

    nolk::RunnerBuilder* operator->() const { return builder_; }

    nolk::TensorX* input(nolk::TensorShape shape, std::vector<float> values) {
        feed(shape, std::move(values));
        return builder_->input(shape);
    }

    // Values for the next input that was recorded otherwise.
    void feed(nolk::TensorShape shape, std::vector<float> values) {
        values.push_back(kSentinel);  // an empty tensor has an address too
        inputs_.push_back({shape, std::move(values)});
    }

    nolk::TensorX* constant(nolk::TensorShape shape, std::vector<float> values) {
        nolk::Tensor tensor{shape, values.data()};
        return builder_->constTensor(&tensor);
    }

    void build(std::vector<nolk::TensorX*> outputs) {
        for (nolk::TensorX* t : outputs) outputShapes_.push_back(builder_->shapeOf(t));
        runner_ = builder_->build(outputs.data(), static_cast<int>(outputs.size()));
        builder_->destroy();
        builder_ = nullptr;
    }

    // Goes on with the network of a model file that has the same inputs and outputs.
    void load(std::vector<unsigned char> file, int batch) {
        runner_->destroy();
        nolk::RunnerBuilder* const builder = newBackEndBuilder(nullptr);
        nolk::ModelReader* const reader = nolk_new_model_reader();
        runner_ = reader->readFromMemory(builder, batch, file.data(), static_cast<int>(file.size()));
        reader->destroy();
        builder->destroy();
        ASSERT_NE(runner_, nullptr);
    }

    // The outputs' floats; an empty result when run returned false. What the layers do not write is kSentinel or
    // garbage. With other values for the inputs, where they are given.
    std::vector<std::vector<float>> runAgain(std::vector<std::vector<float>> values = {}) {
        std::vector<nolk::Tensor> in, out;
        std::vector<std::vector<float>> results;
        for (std::size_t i = 0; i < inputs_.size(); ++i)
            in.push_back({inputs_[i].shape, (values.empty() ? inputs_[i].values : values[i]).data()});
        for (const nolk::TensorShape& s : outputShapes_)
            results.emplace_back(static_cast<std::size_t>(elementCount(s)) + 1, kSentinel);
        for (std::size_t i = 0; i < results.size(); ++i) out.push_back({outputShapes_[i], results[i].data()});
        nolk::Tensor none;
        if (!runner_->run(in.empty() ? &none : in.data(), static_cast<int>(in.size()), out.data(),
                          static_cast<int>(out.size())))
            return {};
        for (auto& r : results) r.pop_back();
        return results;
    }

    std::vector<std::vector<float>> run(std::vector<nolk::TensorX*> outputs) {
        build(std::move(outputs));
        return runAgain();
    }

    static constexpr float kSentinel = -12345.0f;

private:
    struct Input {
        nolk::TensorShape shape;
        std::vector<float> values;
    };

    nolk::RunnerBuilder* builder_;
    nolk::Runner* runner_ = nullptr;
    std::vector<Input> inputs_;
    std::vector<nolk::TensorShape> outputShapes_;
};
