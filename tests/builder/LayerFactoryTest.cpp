#include "builder/LayerFactory.h"

#include <gtest/gtest.h>

#include "builder/OutputLayerFactory.h"
#include "support/TestFactory.h"

namespace {

const nolk::TensorShape kSmall{1, 60, 1, 1, 1};
const nolk::TensorShape kLarge{1, 4, 5, 5, 3};

struct Tensor : nolk::TensorX {
    explicit Tensor(nolk::TensorShape s, bool constant = false) : TensorX(s, constant) {
        setRawTensor(std::make_shared<RawTensor>());
    }
};

TEST(LayerFactory, OnlyTheSoleConsumerOfAVariableWorksInPlace) {
    Tensor x(kSmall), constant(kSmall, true), shared(kSmall), twice(kSmall);
    TestFactory alone({&x}, {kLarge}, true), ofConstant({&constant}, {kSmall}, true);
    TestFactory first({&shared}, {kSmall}, true), second({&shared}, {kSmall}, true);
    TestFactory itself({&twice, &twice}, {kSmall}, true), never({alone.out()}, {kSmall});
    for (LayerFactory* f : {&alone, &ofConstant, &first, &itself, &never}) f->connect();

    EXPECT_EQ(alone.out()->rawTensor, x.rawTensor);
    EXPECT_EQ(x.rawTensor->size, 100);  // grown to the larger output
    EXPECT_NE(ofConstant.out()->rawTensor, constant.rawTensor);
    EXPECT_NE(first.out()->rawTensor, shared.rawTensor);
    EXPECT_NE(itself.out()->rawTensor, twice.rawTensor);
    EXPECT_NE(never.out()->rawTensor, alone.out()->rawTensor);
    EXPECT_EQ(twice.consumers.size(), 2u);
}

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

TEST(LayerFactory, AbsorbingRelinksTheNeighbours) {
    Tensor x(kSmall);
    TestFactory before({&x}, {kSmall}), middle({before.out()}, {kSmall}), behind({middle.out()}, {kLarge});
    TestFactory last({behind.out()}, {kSmall});
    nolk::TensorX* result = behind.out();
    middle.update_next_producer();
    EXPECT_EQ(middle.output(), result);
    EXPECT_EQ(result->producer, &middle);
    EXPECT_EQ(result->consumers, std::vector<LayerFactory*>{&last});
    EXPECT_NE(behind.output(), result);  // the tensor between them lives on

    middle.update_pre_comsumer();
    EXPECT_EQ(middle.input(), &x);
    EXPECT_EQ(x.consumers, std::vector<LayerFactory*>{&middle});
}

TEST(LayerFactoryDeathTest, ContradictionsEndTheProcess) {
    Tensor x(kSmall), y(kSmall);
    EXPECT_EXIT(TestFactory({}, {kSmall}), testing::ExitedWithCode(1), "^inputs empty$");
    EXPECT_EXIT(TestFactory({&x}, {}), testing::ExitedWithCode(1), "^outputs empty$");
    TestFactory two({&x, &y}, {kSmall, kSmall}, true);
    EXPECT_EXIT(two.input(), testing::ExitedWithCode(1), "^not 1 input$");
    EXPECT_EXIT(two.output(), testing::ExitedWithCode(1), "^not 1 output$");
    EXPECT_EXIT(two.takeOutput(), testing::ExitedWithCode(1), "^not 1 output$");
    EXPECT_EXIT(two.connect(), testing::ExitedWithCode(1), "^not 1 output$");
    EXPECT_EXIT(
        {
            TestFactory f({&x}, {kSmall});
            f.initOutputs(std::move(f.outputs));
        },
        testing::ExitedWithCode(1), "^producer not null$");
}

TEST(Layer, DescriptionsAreFormattedAndCut) {
    Layer layer;
    EXPECT_EQ(layer.setDesc("%s %d", "pool", 3)->desc, "pool 3");
    EXPECT_EQ(layer.setDesc("%s", std::string(300, 'x').c_str())->desc, std::string(255, 'x'));
    EXPECT_EQ(layer.getInputTensor().data, nullptr);
    EXPECT_EQ(layer.getOutputTensor().shape.n, 0);
}

}  // namespace
