#include "memory/TensorSpace.h"

#include <gtest/gtest.h>

#include "support/TestFactory.h"

namespace {

const nolk::TensorShape kHundred{1, 100, 1, 1, 1};  // takes 112 floats

// Builds a plan and says where each tensor lies.
class Plan {
public:
    nolk::TensorX* input(nolk::TensorShape shape = kHundred) {
        inputs_.push_back(std::make_unique<nolk::TensorX>(shape, false));
        inputs_.back()->setRawTensor(std::make_shared<RawTensor>());
        return inputs_.back().get();
    }

    nolk::TensorX* layer(const std::vector<nolk::TensorX*>& in, bool inplace = false,
                         nolk::TensorShape shape = kHundred) {
        factories_.push_back(std::make_unique<TestFactory>(in, std::vector<nolk::TensorShape>{shape}, inplace));
        return factories_.back()->out();
    }

    void make(const std::vector<nolk::TensorX*>& outputs) {
        std::vector<LayerFactory*> layers;
        std::vector<nolk::TensorX*> inputs;
        for (auto& f : factories_) {
            f->connect();
            layers.push_back(f.get());
        }
        for (auto& t : inputs_) inputs.push_back(t.get());
        pool_ = TensorSpace(16).mallocAll(layers, inputs, outputs);
    }

    std::ptrdiff_t offset(const nolk::TensorX* t) const { return t->rawTensor->data - pool_->locate(0); }
    int size() const { return pool_->size(); }
    bool empty() const { return !pool_; }

private:
    std::vector<std::unique_ptr<nolk::TensorX>> inputs_;
    std::vector<std::unique_ptr<TestFactory>> factories_;
    std::unique_ptr<MemoryPool> pool_;
};

TEST(TensorSpace, AChainUsesTwoPlacesInTurnAndConstantsNone) {
    float data[100] = {};
    nolk::TensorX constant(kHundred, true);
    const auto raw = std::make_shared<RawTensor>();
    raw->data = data;
    constant.setRawTensor(raw);
    Plan plan, empty;
    nolk::TensorX* in = plan.input();
    nolk::TensorX* a = plan.layer({in, &constant});
    nolk::TensorX* b = plan.layer({a});
    plan.make({b, &constant});
    EXPECT_EQ(plan.offset(in), 0);
    EXPECT_EQ(plan.offset(a), 112);
    EXPECT_EQ(plan.offset(b), 0);
    EXPECT_EQ(plan.size(), 224);
    EXPECT_EQ(raw->data, data);
    empty.make({});
    EXPECT_TRUE(empty.empty());
}

TEST(TensorSpace, InPlaceTakesNothingAndLivesOn) {
    Plan plan;
    nolk::TensorX* in = plan.input({1, 60, 1, 1, 1});
    nolk::TensorX* a = plan.layer({in}, true, {1, 80, 1, 1, 1});
    nolk::TensorX* b = plan.layer({a});
    nolk::TensorX* c = plan.layer({b});
    plan.make({c});
    EXPECT_EQ(plan.offset(a), 0);
    EXPECT_EQ(plan.offset(b), 80);   // room for the larger of the two that share
    EXPECT_EQ(plan.offset(c), 192);  // the hole of 80 is too small
}

TEST(TensorSpace, ATensorLivesUntilItsLastConsumer) {
    Plan plan;
    nolk::TensorX* in = plan.input();
    nolk::TensorX* a = plan.layer({in});
    nolk::TensorX* b = plan.layer({a});
    nolk::TensorX* c = plan.layer({in, b});
    plan.make({c});
    EXPECT_EQ(plan.offset(b), 224);
    EXPECT_EQ(plan.offset(c), 112);  // a's place; the input's is still read
}

TEST(TensorSpace, OutputsAndWhatNobodyReadsKeepTheirPlaces) {
    Plan plan;
    nolk::TensorX* in = plan.input();
    nolk::TensorX* a = plan.layer({in});
    nolk::TensorX* unread = plan.layer({a});
    nolk::TensorX* b = plan.layer({a});
    plan.make({a, b});
    EXPECT_EQ(plan.offset(a), 112);
    EXPECT_EQ(plan.offset(unread), 0);
    EXPECT_EQ(plan.offset(b), 224);
}

}  // namespace
