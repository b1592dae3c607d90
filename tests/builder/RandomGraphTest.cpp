// Random networks, built with fusion, sharing and planning: against the same networks evaluated one operation after the
// other, and against themselves, saved to a file and loaded again.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "inspect/ModelWriterImpl.h"
#include "support/Net.h"
#include "support/RandomNetwork.h"
#include "support/ReferenceBuilder.h"
#include "support/effort.h"

namespace {

// The reference, which notices networks that mean something else when they are built, or have no form in a file: a
// maximum behind a padding, which leaves its zeros out; a normalisation in front of a convolution with groups, which
// takes its factors by the output's channels; weights that groups share, of which a file has a copy for each group,
// so that more can be fused; paddings below 0.
class Plain final : public ReferenceBuilder {
public:
    bool isTheSameBuilt = true;

    X pad(X x, nolk::Padding p) override { return *pads_.insert(ReferenceBuilder::pad(x, p)).first; }
    X maxPool(X x, nolk::DimsHW kernel, nolk::Padding p, nolk::DimsHW stride) override {
        isTheSameBuilt = isTheSameBuilt && pads_.count(x) == 0;
        return ReferenceBuilder::maxPool(x, kernel, p, stride);
    }
    X batchNormalize(X x, nolk::Vector scale, nolk::Vector bias, nolk::Vector mean, nolk::Vector variance,
                     float epsilon) override {
        X const y = ReferenceBuilder::batchNormalize(x, scale, bias, mean, variance, epsilon);
        return *normalized_.insert(y).first;
    }
    X convolve(X x, nolk::Padding p, nolk::DimsHW stride, nolk::DimsHW dilation, nolk::Weights k) override {
        const bool mixesInGroups = k.groups > 1 && (k.inChannels != 1 || k.outChannels != 1);
        const bool isRepeated = k.groups > 1 && k.shared;
        isTheSameBuilt = isTheSameBuilt && p.top >= 0 && !isRepeated && !(mixesInGroups && normalized_.count(x) != 0);
        return ReferenceBuilder::convolve(x, p, stride, dilation, k);
    }
    X deConvolve(X x, nolk::Padding p, nolk::DimsHW stride, nolk::DimsHW dilation, nolk::Weights k) override {
        isTheSameBuilt = isTheSameBuilt && p.right >= 0;
        return ReferenceBuilder::deConvolve(x, p, stride, dilation, k);
    }

private:
    X input(Shape shape) override { return ReferenceBuilder::input(shape, Values(1).reals(count(shape))); }

    std::set<X> pads_, normalized_;
};

void expectReference(std::uint32_t seed, int batch, Plain& reference, const Xs& expected) {
    RandomNetwork recorded(seed, batch, true), saved(seed, batch, true);
    Net net;
    ModelWriterImpl writer({1 + static_cast<int>(seed % 4), false, {}});
    const Xs outputs = recorded.record(*net.operator->());
    Xs written = saved.record(writer);
    writer.build(written.data(), static_cast<int>(written.size()));
    for (const Shape& shape : recorded.inputs) net.feed(shape, Values(1).reals(ReferenceBuilder::count(shape)));
    net.build(outputs);
    const auto results = net.runAgain();
    ASSERT_EQ(results.size(), expected.size());
    for (std::size_t i = 0; i < results.size(); ++i) {
        const std::vector<float>& wanted = reference.values(expected[i]);
        float largest = 0.0f;
        for (const float v : wanted) largest = std::max(largest, std::fabs(v));
        // Rounding adds up over dozens of operations, in proportion to the largest values.
        expectClose(results[i], wanted, 5e-5f * (1.0f + largest));
    }
    for (const bool isLoaded : {false, true}) {
        SCOPED_TRACE(testing::Message() << "loaded " << isLoaded << ", version " << int{writer.bytes()[2]});
        if (isLoaded) net.load(writer.bytes(), batch);
        const auto again = net.runAgain();
        ASSERT_EQ(again.size(), results.size());
        for (std::size_t i = 0; i < results.size(); ++i) expectSameBits(again[i], results[i]);
    }
}

TEST(RandomGraph, EqualsPlainEvaluationAlsoFromAFile) {
    int compared = 0;
    const int seeds = std::max(6 * effort(), 20);
    for (int i = 1; i <= seeds && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(testing::Message() << "seed " << i);
        const auto seed = static_cast<std::uint32_t>(i);
        const int batch = 1 + i % 2;
        RandomNetwork network(seed, batch, true);
        Plain reference;
        const Xs outputs = network.record(reference);
        if (!reference.isTheSameBuilt) continue;
        expectReference(seed, batch, reference, outputs);
        ++compared;
    }
    EXPECT_GT(compared, seeds / 4);
}

}  // namespace
