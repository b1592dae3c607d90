#include "memory/TensorSpace.h"

#include <gtest/gtest.h>

#include "support/TestFactory.h"

namespace {

struct Step {
    std::vector<std::size_t> in;  // tensors: 0 is the network's input, 1 the first step's result
    bool inplace = false;
    int size = 100;  // takes 112 floats
};

TEST(TensorSpace, GivesEveryTensorItsPlace) {
    const struct {
        const char* claim;
        int inputSize;
        std::vector<Step> steps;
        std::vector<std::size_t> outputs;
        std::vector<std::ptrdiff_t> offsets;
        int size;
    } plans[] = {
        {"a chain uses two places in turn", 100, {{{0}}, {{1}}}, {2}, {0, 112, 0}, 224},
        // Room for the larger of the two that share; the hole of 80 is too small for the last.
        {"in place takes nothing and lives on", 60, {{{0}, true, 80}, {{1}}, {{2}}}, {3}, {0, 0, 80, 192}, 304},
        {"a tensor lives until its last consumer", 100, {{{0}}, {{1}}, {{0, 2}}}, {3}, {0, 112, 224, 112}, 336},
        {"outputs keep their places, not what nobody reads", 100, {{{0}}, {{1}}, {{1}}}, {1, 3}, {0, 112, 0, 224}, 336},
    };
    for (const auto& plan : plans) {
        SCOPED_TRACE(plan.claim);
        nolk::TensorX input({1, plan.inputSize, 1, 1, 1}, false);
        input.setRawTensor(std::make_shared<RawTensor>());
        std::vector<nolk::TensorX*> tensors{&input}, outputs;
        std::vector<std::unique_ptr<TestFactory>> factories;
        std::vector<LayerFactory*> layers;
        for (const Step& step : plan.steps) {
            std::vector<nolk::TensorX*> in;
            for (const std::size_t i : step.in) in.push_back(tensors[i]);
            const std::vector<nolk::TensorShape> shape{{1, step.size, 1, 1, 1}};
            layers.push_back(factories.emplace_back(std::make_unique<TestFactory>(in, shape, step.inplace)).get());
            tensors.push_back(factories.back()->out());
        }
        for (const auto& factory : factories) factory->connect();
        for (const std::size_t i : plan.outputs) outputs.push_back(tensors[i]);
        const auto pool = TensorSpace(16).mallocAll(layers, {&input}, outputs);
        std::vector<std::ptrdiff_t> offsets;
        for (const nolk::TensorX* t : tensors) offsets.push_back(t->rawTensor->data - pool->locate(0));
        EXPECT_EQ(offsets, plan.offsets);
        EXPECT_EQ(pool->size(), plan.size);
    }
}

TEST(TensorSpace, ConstantsPassThroughAndNothingToPlaceMakesNoPool) {
    float data[100] = {};
    nolk::TensorX constant({1, 100, 1, 1, 1}, true);
    constant.setRawTensor(std::make_shared<RawTensor>());
    constant.rawTensor->data = data;
    TestFactory factory({&constant}, {{1, 100, 1, 1, 1}});
    factory.connect();
    const auto pool = TensorSpace(16).mallocAll({&factory}, {}, {factory.out(), &constant});
    EXPECT_EQ(constant.rawTensor->data, data);
    EXPECT_EQ(factory.out()->rawTensor->data, pool->locate(0));
    EXPECT_EQ(pool->size(), 112);
    EXPECT_FALSE(TensorSpace(16).mallocAll({}, {}, {}));
}

}  // namespace
