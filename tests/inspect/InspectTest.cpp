// What hosts learn of a model file, and what loading refuses on their behalf.
#include <gtest/gtest.h>
#include <nolk_model.h>

#include <functional>
#include <string>
#include <vector>

#include "support/messages.h"
#include "support/modelBytes.h"
#include "support/values.h"

namespace {

using Writer = nolk::ModelWriter;
using X = nolk::TensorX;

Bytes fileOf(const std::function<std::vector<X*>(Writer&)>& record, int version = 4) {
    nolk::ModelFileOptions options{version, false, {}};
    if (version > 1) options.headInfo = {{7, {'a', 'b'}}};
    const nolk::Owned<Writer> writer = nolk::newModelWriter(options);
    std::vector<X*> outputs = record(*writer);
    writer->build(outputs.data(), static_cast<int>(outputs.size()));
    return writer->bytes();
}

// input [3, 8, 8] - pad 1 - convolution 3x3, 4 channels - batch normalisation - relu; a constant beside it.
std::vector<X*> smallNetwork(Writer& w) {
    std::vector<float> weights(4 * 3 * 3 * 3, 0.5f), four(4, 1.0f), constant(5, 2.0f);
    nolk::Tensor values{{1, 5, 1, 1, 1}, constant.data()};
    const nolk::Vector v{4, four.data()};
    X* x = w.pad(w.input({1, 3, 8, 8, 3}), {1, 1, 1, 1});
    x = w.convolve(x, {0, 0, 0, 0}, {2, 1}, {1, 1}, {1, 4, 3, 3, 3, false, weights.data(), nullptr});
    x = w.batchNormalize(x, v, v, v, v, 0.25f);
    return {w.relu(x), w.constTensor(&values)};
}

TEST(InspectModel, TellsWhatTheFileHoldsAndWhatIsMadeOfIt) {
    for (const int version : {1, 4}) {
        const Bytes file = fileOf(smallNetwork, version), before = file;
        nolk::InspectionOptions options;
        options.batch = 2;
        const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size(), options);
        EXPECT_EQ(file, before);
        EXPECT_EQ(info.version, version);
        EXPECT_EQ(info.recordCount, 8);
        ASSERT_EQ(info.operations.size(), 6u);
        EXPECT_EQ(info.inputs, std::vector<int>{0});
        EXPECT_EQ(info.outputs, (std::vector<int>{4, 5}));
        if (version == 4) {
            ASSERT_EQ(info.headInfo.size(), 1u);
            EXPECT_EQ(info.headInfo[0].key, 7);
            EXPECT_EQ(info.headInfo[0].data, (Bytes{'a', 'b'}));
        }

        const nolk::ModelOperation& convolution = info.operations[2];
        EXPECT_EQ(convolution.record, 3);
        EXPECT_EQ(convolution.name, "convolve");
        EXPECT_EQ(convolution.details, "3x3, stride 2x1");
        EXPECT_EQ(convolution.inputs, std::vector<int>{1});
        EXPECT_EQ(convolution.parametersKept, 112) << "it gets a bias from the batch normalisation";

        EXPECT_EQ(info.remark, "");
        ASSERT_EQ(info.layers.size(), 2u);
        EXPECT_EQ(info.layers[1].operation, 4);
        EXPECT_EQ(info.beforeFusion.parameters, 108 + 16 + 2 * 5);
        EXPECT_EQ(info.afterFusion.parameters, 112 + 2 * 5);
        // The input [2, 3, 8, 8], and the convolution's output [2, 4, 4, 8], which relu overwrites.
        ASSERT_EQ(info.arenaRanges.size(), 2u);
        EXPECT_EQ(info.arenaRanges[0].lastStep, 1);
        EXPECT_EQ(info.arenaRanges[1].operations, (std::vector<int>{2, 4}));
        EXPECT_EQ(info.arenaRanges[1].lastStep, 3);
        EXPECT_EQ(info.arenaBytes, (2 * 3 * 64 + 2 * 4 * 32) * 4);
        EXPECT_GT(info.scratchBytes, 0);
    }
}

TEST(InspectModel, StopsWhereItWasToldTo) {
    const Bytes file = fileOf(smallNetwork);
    nolk::InspectionOptions options;
    options.depth = nolk::InspectionDepth::build;
    EXPECT_EQ(nolk::inspectModel(file.data(), file.size(), options).scratchBytes, -1);
    options.depth = nolk::InspectionDepth::records;
    EXPECT_FALSE(nolk::inspectModel(file.data(), file.size(), options).isBuilt);
}

// A join of nothing would end the process as soon as it is recorded, also where no output needs it.
TEST(InspectModel, BuildsNothingThatEndsTheProcess) {
    const Bytes file = container(1, {}, hex("0300 0000 0100 0100 0100 0000 0c00 00 0500 01 1600 0000"));
    const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size());
    EXPECT_FALSE(info.isBuilt);
    EXPECT_EQ(info.remark, "not built: record 2 (concat): joins nothing, which ends the process");
    nolk::InspectionOptions options;
    options.batch = 0;
    EXPECT_THROW(nolk::inspectModel(file.data(), file.size(), options), nolk::ModelError);
    EXPECT_THROW(nolk::loadModel(nullptr, 5, 1), nolk::ModelError);
}

// A normalisation changes the bias of each output channel, even if there are no weights.
TEST(InspectModel, CountsTheStepsOfFolding) {
    const auto network = [](int normalizations, int inChannels) {
        return fileOf([&](Writer& w) {
            std::vector<float> values(10, 1.0f);
            const nolk::Vector two{2, values.data()};
            X* x = w.input({1, 2, 1, 1, 1});
            for (int i = 0; i < normalizations; ++i) x = w.batchNormalize(x, two, two, two, two, 0.25f);
            return std::vector<X*>{
                w.convolve(x, {}, {1, 1}, {1, 1}, {1, 5, inChannels, 1, 1, false, values.data(), nullptr})};
        });
    };
    for (const int inChannels : {0, 2}) {
        const Bytes two = network(2, inChannels), three = network(3, inChannels);
        const auto steps = [](const Bytes& file) { return nolk::inspectModel(file.data(), file.size()).cost.steps; };
        const int folding = 5 * inChannels + 5;
        EXPECT_EQ(steps(three) - steps(two), 2 + folding);
        // Building needs no more than these, and is not begun if they are too many.
        for (const bool isEnough : {false, true}) {
            nolk::InspectionOptions options;
            options.limits.multiplyAdds = 3 * folding - (isEnough ? 0 : 1);
            EXPECT_EQ(nolk::inspectModel(three.data(), three.size(), options).isBuilt, isEnough);
            EXPECT_EQ(nolk::checkModel(three.data(), three.size(), options.limits).remark.empty(), isEnough);
        }
    }
}

TEST(LoadModel, RunsTheNetwork) {
    const Bytes file = fileOf([](Writer& w) { return std::vector<X*>{w.abs(w.input({1, 2, 1, 1, 1}))}; });
    const nolk::Owned<nolk::Runner> runner = nolk::loadModel(file.data(), file.size(), 2, "NolkRaw:num_threads=2");
    float in[] = {-1, 2, -3, 4}, out[4] = {};
    nolk::Tensor input{{2, 2, 1, 1, 1}, in}, output{{2, 2, 1, 1, 1}, out};
    ASSERT_TRUE(runner->run(&input, 1, &output, 1));
    EXPECT_EQ(out[2], 3);
}

TEST(LoadModel, RefusesWhatExceedsTheLimitsWithTheNumbers) {
    const Bytes file = fileOf(smallNetwork);
    const nolk::ModelCost cost = nolk::inspectModel(file.data(), file.size()).cost;
    const std::int64_t needed = cost.memoryBytes();
    EXPECT_NO_THROW(nolk::loadModel(file.data(), file.size(), 1, nullptr, {needed, cost.steps}));
    for (const nolk::ModelLimits& limits : {nolk::ModelLimits{needed - 1, cost.steps}, {needed, cost.steps - 1}}) {
        try {
            nolk::loadModel(file.data(), file.size(), 1, nullptr, limits);
            ADD_FAILURE() << "accepted";
        } catch (const nolk::LimitExceeded& e) {
            EXPECT_EQ(e.cost.memoryBytes(), needed);
            EXPECT_NE(std::string(e.what()).find("the limit is"), std::string::npos) << e.what();
        }
    }
}

// Files that nolk_new_runner would run into the end of the process, or into nonsense, or could not hold in memory.
TEST(LoadModel, RefusesWhatNoRunCanGiveAMeaning) {
    const std::string input = "0000 01000000 02000000 03000000 0500 ";
    const struct {
        std::string records, text;
    } rows[] = {
        {"0300" + input + "1c00 0500 0700 01000000 04000000 06000000 07 1600 0700",
         "record 2 (resize): mode must be 1 to 2, is 7: running it ends the process"},
        {"0300" + input + "0b00 0500 0700 00 1600 0700",
         "record 2 (softmax): axis must be 1 to 3, is 0: the output is left unwritten"},
        {"0200" + input + "1600 0700", "output 0 depends on an undefined id"},
        {"0300 0100 0500 01000000 02000000 01000000 f(1) f(2) 1000 0500 0700 02000000 01000000 01000000 00 1600 0700",
         "record 2 (reshape): layout nchw copies nothing, so its input must not be a constant"},
        {"0400" + input + "1000 0500 0700 06000000 01000000 01000000 00 1600 0700 1600 0500",
         "record 2 (reshape): layout nchw copies nothing, so its input must have no other use, but id 5 is used 2 "
         "times"},
        {"0300" + input + "0400 0500 0700 0000 0200 0200 0100 1600 0700",
         "record 2 (transpose): axes 0 2 2 1 are no permutation: a part of the output is left unwritten"},
        {"0300 0000 00000000 00000000 00000000 0500 0400 0500 0700 0000 0000 0300 0300 1600 0700",
         "record 2 (transpose): axes 0 0 3 3 are no permutation: a part of the output is left unwritten"},
        {"0300" + input + "1400 0500 0700 03000000 02000000 03000000 00 1600 0700",
         "record 2 (reduce): extents should be 1 or the input's [1, 1, 2, 3], are [1, 3, 2, 3]: a part of the output "
         "is left unwritten"},
        {"0300" + input + "1000 0500 0700 01000000 03000000 03000000 01 1600 0700",
         "record 2 (reshape): the input [1, 1, 2, 3] has 6 elements, the output [1, 1, 3, 3] has 9: a part of the "
         "output is left unwritten"},
        {"0300" + input + "1c00 0500 0700 02000000 04000000 06000000 01 1600 0700",
         "record 2 (resize): the output [1, 2, 4, 6] should have the samples and channels of the input [1, 1, 2, 3]: "
         "a part of the output is left unwritten"},
        {"0400" + input + "0000 01000000 01000000 02000000 0600 0c00 02 0500 0600 0700 02 1600 0700",
         "record 3 (concat): shapes disagree off the axis: input 1 is [1, 1, 1, 2], the first [1, 1, 2, 3]: a part of "
         "the output is left unwritten"},
        {"0400" + input + "0000 02000000 02000000 02000000 0600 0c00 02 0500 0600 0700 02 1600 0700",
         "record 3 (concat): shapes disagree off the axis: input 1 is [1, 2, 2, 2], the first [1, 1, 2, 3]: a part of "
         "the output is left unwritten"},
        {"0300 0000 02000000 01000000 01000000 0500 1800 0500 0700 0000 01000000 01000000"
         "f(1) f(1) f(1) f(1) f(1) f(1) f(1) f(1) 00 1600 0700",
         "record 2 (lstm): the input should have 1 channel, has 2: a part of the output is left unwritten"},
        {"0200" + input + "7f00",
         "record 2 (?) at byte 24: error: unknown op code 127, so where the next record "
         "begins cannot be told"},
    };
    for (const auto& row : rows) {
        const Bytes file = container(2, hex("0000"), hex(row.records));
        popMessages();
        testing::internal::CaptureStderr();
        try {
            nolk::loadModel(file.data(), file.size(), 1);
            ADD_FAILURE() << "accepted: " << row.text;
        } catch (const nolk::ModelError& e) {
            EXPECT_EQ(e.what(), row.text);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(popMessages(), std::vector<std::string>{});
    }
    const Bytes unread = container(4, hex("0000"), hex("0300" + input + "2300 0500 0700 0100 07 1600 0700"));
    EXPECT_THROW(nolk::loadModel(unread.data(), unread.size(), 1), nolk::ModelError);
    const Bytes huge = container(2, hex("0000"),
                                 hex("0300 0000 0100 0000 ff7f0000 ff7f0000 0500 0a00 0500 0700 "
                                     "1600 0700"));
    EXPECT_THROW(nolk::loadModel(huge.data(), huge.size(), 1, nullptr, {1 << 30}), nolk::LimitExceeded);
}

}  // namespace
