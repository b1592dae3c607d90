#include "builder/LayerFactory.h"

#include <gtest/gtest.h>

#include "builder/OutputLayerFactory.h"
#include "support/TestFactory.h"

namespace {

const nolk::TensorShape kSmall{1, 60, 1, 1, 1};

struct Tensor : nolk::TensorX {
    explicit Tensor(nolk::TensorShape s, bool constant = false) : TensorX(s, constant) {
        setRawTensor(std::make_shared<RawTensor>());
    }
};

TEST(LayerFactory, AGraphOutputIsProtected) {
    Tensor x(kSmall);
    TestFactory a({&x}, {kSmall}), b({a.out()}, {kSmall}, true);
    EXPECT_EQ(a.fusibleNext(), &b);
    EXPECT_EQ(b.fusiblePrev(), &a);
    EXPECT_EQ(a.fusiblePrev(), nullptr);  // a graph input has no producer
    EXPECT_TRUE(b.canInplace());
    OutputLayerFactory sentinel(a.out());
    EXPECT_EQ(a.fusibleNext(), nullptr);
    EXPECT_EQ(b.fusiblePrev(), nullptr);
    EXPECT_FALSE(b.canInplace());
}

TEST(LayerFactoryDeathTest, ContradictionsEndTheProcess) {
    Tensor x(kSmall), y(kSmall);
    TestFactory two({&x, &y}, {kSmall, kSmall}, true);
    EXPECT_EXIT(TestFactory({}, {kSmall}), testing::ExitedWithCode(1), "^inputs empty$");
    EXPECT_EXIT(TestFactory({&x}, {}), testing::ExitedWithCode(1), "^outputs empty$");
    EXPECT_EXIT(two.input(), testing::ExitedWithCode(1), "^not 1 input$");
    EXPECT_EXIT(two.output(), testing::ExitedWithCode(1), "^not 1 output$");
    EXPECT_EXIT(two.connect(), testing::ExitedWithCode(1), "^not 1 output$");
    TestFactory one({&x}, {kSmall});
    EXPECT_EXIT(one.initOutputs(std::move(one.outputs)), testing::ExitedWithCode(1), "^producer not null$");
}

TEST(Layer, DescriptionsAreFormattedAndCut) {
    Layer layer;
    EXPECT_EQ(layer.setDesc("%s %d", "pool", 3)->desc, "pool 3");
    EXPECT_EQ(layer.setDesc("%s", std::string(300, 'x').c_str())->desc, std::string(255, 'x'));
}

}  // namespace
