// How much memory a load needs beside the file's bytes: weights are in the layers once, and nowhere else.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "builder/RawRunnerBuilder.h"
#include "inspect/MessageCollector.h"
#include "inspect/ModelWriterImpl.h"
#include "layers/ownedFloats.h"
#include "memory/FloatKeeper.h"
#include "memory/optionalInterface.h"
#include "model/ModelReaderImpl.h"
#include "support/CallLog.h"
#include "support/values.h"

namespace {

using Bytes = std::vector<unsigned char>;

// What the process has needed at most since it began, in bytes.
double peak() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024.0;
}

// To be called in a process of its own. Reads the file at `path` where `file` is empty.
void exitWithGrowth(Bytes& file, const std::string& path, double most) {
    const double before = peak();
    auto* const builder = new RawRunnerBuilder(nullptr);
    MessageCollector errors;
    ModelReaderImpl reader(errors);
    const bool loaded = file.empty() ? reader.readFromFile(builder, 1, path.c_str())
                                     : reader.readFromMemory(builder, 1, file.data(), static_cast<int>(file.size()));
    const double growth = peak() - before;
    std::fprintf(stderr, "%s, grown by %.0f bytes, at most %.0f expected\n", loaded ? "loaded" : "failed", growth,
                 most);
    _exit(loaded && growth < most ? 0 : 1);
}

struct Case {
    const char* name;
    int version;
    std::function<nolk::TensorX*(ModelWriterImpl&, float* weights)> record;
};

constexpr int kExtent = 3000;                // so that all weights are 36 MB
constexpr int kWeights = kExtent * kExtent;  // of each model

const Case kCases[] = {
    {"fullConnect", 3,
     [](ModelWriterImpl& w, float* weights) {
         return w.fullConnect(w.input({1, kExtent, 1, 1, 1}), {1, kExtent, kExtent, 1, 1, true, weights, nullptr});
     }},
    {"convolve, folded", 4,
     [](ModelWriterImpl& w, float* weights) {
         nolk::TensorX* const y = w.convolve(w.input({1, kExtent, 2, 2, 3}), {}, {1, 1}, {1, 1},
                                             {1, kExtent, kExtent, 1, 1, false, weights, weights});
         const nolk::Vector v{kExtent, weights};
         return w.batchNormalize(y, v, v, v, v, 2.0f);
     }},
    {"deConvolve", 3,
     [](ModelWriterImpl& w, float* weights) {
         nolk::TensorX* const x = w.input({1, kExtent, 2, 2, 3});
         return w.deConvolve(x, {}, {1, 1}, {1, 1}, {1, kExtent, kExtent, 1, 1, false, weights, nullptr});
     }},
    {"constTensor", 3,
     [](ModelWriterImpl& w, float* weights) {
         nolk::Tensor tensor{{1, 1, kExtent, kExtent, 3}, weights};
         return w.constTensor(&tensor);
     }},
};

Bytes modelOf(const Case& c) {
    std::vector<float> weights = Values(31).reals(kWeights);
    ModelWriterImpl writer({c.version, false, {}});
    nolk::TensorX* result = c.record(writer, weights.data());
    writer.build(&result, 1);
    return writer.bytes();
}

// 2.2 times the file's size with the file's bytes.
TEST(LoadMemoryDeathTest, WeightsAreCopiedOnce) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer keeps what was released, and notes on the rest";
#endif
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Bytes file = modelOf(c);
        const auto size = static_cast<double>(file.size());
        const std::string path = testing::TempDir() + "nolk-load-memory-" + std::to_string(getpid()) + ".cm";
        EXPECT_EXIT(exitWithGrowth(file, path, 1.2 * size), testing::ExitedWithCode(0), "loaded");
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        Bytes().swap(file);
        EXPECT_EXIT(exitWithGrowth(file, path, 2.2 * size), testing::ExitedWithCode(0), "loaded");
        std::remove(path.c_str());
    }
}

TEST(FloatArrays, AnArrayThatIsUsedTwiceIsCopiedTheSecondTime) {
    FloatArrays given;
    float* const floats = given.add(zeroedFloats(2));
    floats[1] = 5.0f;
    const FloatBuffer first = ownedFloats(floats, 2, &given), second = ownedFloats(floats, 2, &given);
    EXPECT_EQ(first.get(), floats);
    ASSERT_NE(second.get(), floats);
    EXPECT_EQ(second[1], 5.0f);
}

// Its slots stand behind a null pointer.
TEST(FloatKeeper, ABuilderWithoutTypeInformationIsNone) {
    CallLog typed;
    EXPECT_EQ(optionalInterface<FloatKeeper>(typed), nullptr);
    const void* const table[] = {nullptr, nullptr, nullptr};
    const void* const* const untyped = table + 2;
    EXPECT_EQ(
        optionalInterface<FloatKeeper>(*reinterpret_cast<nolk::RunnerBuilder*>(const_cast<const void***>(&untyped))),
        nullptr);
}

}  // namespace
