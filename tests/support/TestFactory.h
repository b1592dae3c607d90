// A factory that only links, for tests of graph and planner.
#pragma once

#include <utility>
#include <vector>

#include "builder/LayerFactory.h"
#include "layers/Layer.h"

class TestFactory final : public LayerFactory {
public:
    TestFactory(const std::vector<nolk::TensorX*>& in, const std::vector<nolk::TensorShape>& out, bool inplace = false)
        : LayerFactory(in), inplace_(inplace) {
        std::vector<std::unique_ptr<nolk::TensorX>> made;
        for (const nolk::TensorShape& s : out) made.push_back(std::make_unique<nolk::TensorX>(s, false));
        initOutputs(std::move(made));
    }

    std::unique_ptr<Layer> create() override { return nullptr; }
    bool inplaceOp() const override { return inplace_; }
    nolk::TensorX* out(std::size_t i = 0) const { return outputs[i].get(); }

private:
    bool inplace_;
};
