// Loading needs memory in proportion to the file and to what the network declares, for the worst file of each operation
// that is known. NOLK_PRINT_BOUNDS=1 prints the figures.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#ifdef HAS_FAST_BACK_END
#include "fast/FastRunner.h"
#include "fast/FastRunnerBuilder.h"
#endif
#include "inspect/ModelWriterImpl.h"
#include "support/Allocations.h"
#include "support/modelBytes.h"

namespace {

using X = nolk::TensorX*;
using Writer = nolk::ModelWriter;

// Loading takes at most kConstant bytes, kLoadedRecord for each record, kFile for each byte of the file and kDeclared
// for each byte of arena and weights. Looking into a file takes kSeenRecord for each record. A file has at most 32767
// records, so this is less than 64 MB and what is in proportion; with the fast back end, up to 16,000 records.
constexpr std::int64_t kConstant = 1 << 16, kLoadedRecord = 800, kSeenRecord = 1800, kFastRecord = 4000, kFastFile = 80,
                       kFile = 25, kDeclared = 3;

X chain(Writer& w, X x, int count, const std::function<X(X)>& next) {
    for (int i = 0; i < count; ++i) x = next(x);
    w.build(&x, 1);
    return x;
}

std::vector<float> ones(std::size_t count) { return std::vector<float>(count, 1.0f); }

struct Row {
    const char* name;
    std::function<void(Writer&)> record;
    int batch = 1;
};

constexpr int kCount = 300;    // operations in a row
constexpr int kExtent = 8192;  // of tensors: 32 KB

const Row kRows[] = {
    {"relu",
     [](Writer& w) {
         chain(w, w.input({1, 1, 1, 1, 3}), 20000, [&](X x) { return w.relu(x); });
     }},
    {"add, one tensor used often",
     [](Writer& w) {
         X const a = w.input({1, 1, 1, 1, 3});
         chain(w, a, 20000, [&](X x) { return w.add(x, a); });
     }},
    {"concat of 255",
     [](Writer& w) {
         const std::vector<X> parts(255, w.input({1, 1, 1, 1, 3}));
         X y = nullptr;
         for (int i = 0; i < 2000; ++i) y = w.concat(const_cast<X*>(parts.data()), 255, nolk::Axis::c);
         w.build(&y, 1);
     }},
    {"outputs",
     [](Writer& w) {
         const std::vector<X> outputs(20000, w.input({1, 1, 64, 64, 3}));
         w.build(const_cast<X*>(outputs.data()), 20000);
     }},
    {"inputs of one element",
     [](Writer& w) {
         X x = nullptr;
         for (int i = 0; i < 16000; ++i) x = w.input({1, 1, 1, 1, 3});
         w.build(&x, 1);
     }},
    {"inputs of 64 KB",
     [](Writer& w) {
         X x = nullptr;
         for (int i = 0; i < 1000; ++i) x = w.input({1, 1, 128, 128, 3});
         w.build(&x, 1);
     }},
    {"pad and maxPool, fused",
     [](Writer& w) {
         chain(w, w.input({1, 1, 8, 8, 3}), 8000, [&](X x) {
             return w.maxPool(w.pad(x, {1, 0, 1, 0}), {2, 2}, {}, {1, 1});
         });
     }},
    {"convolve and batchNormalize, fused",
     [](Writer& w) {
         auto v = ones(4);
         const nolk::Vector one{1, v.data()};
         chain(w, w.input({1, 1, 4, 4, 3}), 8000, [&](X x) {
             X const y = w.convolve(x, {}, {1, 1}, {1, 1}, {1, 1, 1, 1, 1, false, v.data(), nullptr});
             return w.batchNormalize(y, one, one, one, one, 0.1f);
         });
     }},
    {"convolve with one output channel",
     [](Writer& w) {
         auto v = ones(1 << 18);
         chain(w, w.input({1, 1 << 14, 1, 23, 3}), 1, [&](X x) {
             return w.convolve(x, {}, {1, 1}, {1, 1}, {1, 1, 1 << 14, 1, 16, false, v.data(), nullptr});
         });
     }},
    {"convolve without inputs",
     [](Writer& w) {
         auto v = ones(1);
         const nolk::Vector none{0, v.data()};
         chain(w, w.input({1, 0, 1, 1, 1}), 1, [&](X x) {
             X const y = w.batchNormalize(x, none, none, none, none, 0.1f);
             return w.convolve(y, {}, {1, 1}, {1, 1}, {1, 1 << 28, 0, 2, 1, false, v.data(), nullptr});
         });
     }},
    {"convolve of 32767 groups without inputs",
     [](Writer& w) {
         auto v = ones(1);
         chain(w, w.input({1, 1, 1, 1, 1}), kCount, [&](X x) {
             X const y = w.convolve(x, {}, {1, 1}, {1, 1}, {32767, 1, 0, 1, 1, false, v.data(), nullptr});
             return w.slice(y, {1, 0, 1, 1});
         });
     }},
    {"convolve with padding over many rows",
     [](Writer& w) {
         auto v = ones(3);
         chain(w, w.input({1, 1, kExtent, 1, 3}), kCount, [&](X x) {
             return w.convolve(x, {1, 1, 0, 0}, {1, 1}, {1, 1}, {1, 1, 1, 3, 1, false, v.data(), nullptr});
         });
     }},
    {"concat and slice of channels that do not begin with blocks",
     [](Writer& w) {
         auto v = ones(8);
         X const x =
             w.convolve(w.input({1, 1, 1, 1, 1}), {}, {1, 1}, {1, 1}, {1, 8, 1, 1, 1, false, v.data(), nullptr});
         const std::vector<X> parts(255, x);
         chain(w, w.concat(const_cast<X*>(parts.data()), 255, nolk::Axis::c), kCount, [&](X y) {
             X pair[] = {x, y};
             return w.slice(w.concat(pair, 2, nolk::Axis::c), {1, 4, 4 + 255 * 8, 1});
         });
     }},
    {"deConvolve",
     [](Writer& w) {
         auto v = ones(1);
         chain(w, w.input({1, 1, 1, kExtent, 3}), kCount, [&](X x) {
             return w.deConvolve(x, {}, {1, 1}, {1, 1}, {1, 1, 1, 1, 1, false, v.data(), nullptr});
         });
     }},
    {"deConvolve with stride 0",
     [](Writer& w) {
         auto v = ones(kExtent);
         chain(w, w.input({1, 1, kExtent, 1, 3}), 1, [&](X x) {
             return w.deConvolve(x, {}, {0, 1}, {1, 1}, {1, 1, 1, kExtent, 1, false, v.data(), nullptr});
         });
     }},
    {"fullConnect",
     [](Writer& w) {
         auto v = ones(1 << 18);
         chain(w, w.input({1, 1 << 9, 1, 1, 1}), 1, [&](X x) {
             return w.fullConnect(x, {1, 1 << 9, 1 << 9, 1, 1, true, v.data(), nullptr});
         });
     }},
    {"batchNormalize",
     [](Writer& w) {
         auto v = ones(32767);
         const nolk::Vector all{32767, v.data()};
         chain(w, w.input({1, 32767, 1, 1, 1}), 10, [&](X x) { return w.batchNormalize(x, all, all, all, all, 1.0f); });
     }},
    {"prelu",
     [](Writer& w) {
         auto v = ones(32767);
         chain(w, w.input({1, 32767, 1, 1, 1}), 20, [&](X x) { return w.prelu(x, v.data(), 32767); });
     }},
    {"instanceNormalization",
     [](Writer& w) {
         chain(w, w.input({1, kExtent, 1, 1, 1}), kCount, [&](X x) { return w.instanceNormalization(x, 0.1f); });
     }},
    {"instanceNormalization, scaled",
     [](Writer& w) {
         auto v = ones(32767);
         const nolk::Vector all{32767, v.data()};
         chain(w, w.input({1, 32767, 1, 1, 1}), 10, [&](X x) { return w.instanceNormalization(x, all, all, 0.1f); });
     }},
    {"resize, linear",
     [](Writer& w) {
         chain(w, w.input({1, 1, 1, kExtent, 3}), kCount, [&](X x) {
             return w.resize(x, {1, 1, 1, kExtent, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel);
         });
     }},
    {"resize, nearest",
     [](Writer& w) {
         chain(w, w.input({1, 1, 1, kExtent, 3}), kCount, [&](X x) {
             return w.resize(x, {1, 1, kExtent, 1, 3}, nolk::ResizeMode::nearest, nolk::ResizeTransMode::halfPixel);
         });
     }},
    {"resize of 16 channels",
     [](Writer& w) {
         chain(w, w.input({1, 16, 1, kExtent, 3}), kCount, [&](X x) {
             return w.resize(x, {1, 16, 1, kExtent, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel);
         });
     }},
    {"convolve and avgPool of 16 channels",
     [](Writer& w) {
         auto v = ones(16 * 16);
         chain(w, w.input({1, 16, 1, kExtent, 3}), kCount, [&](X x) {
             X const y = w.convolve(x, {}, {1, 1}, {1, 1}, {16, 1, 1, 1, 1, false, v.data(), nullptr});
             return w.avgPool(y, {1, 1}, {}, {1, 1});
         });
     }},
    {"lstm with one unit",
     [](Writer& w) {
         auto v = ones(200000);
         chain(w, w.input({1, 1, 1, 50000, 3}), 1, [&](X x) {
             return w.lstm(x, {nolk::Direction::forward, 1, 50000, 1, v.data(), v.data(), nullptr, true});
         });
     }},
    {"lstm",
     [](Writer& w) {
         auto v = ones(1 << 18);
         chain(w, w.input({1, 1, 1, 256, 3}), 1, [&](X x) {
             return w.lstm(x, {nolk::Direction::forward, 1, 256, 256, v.data(), v.data(), nullptr, true});
         });
     }},
    {"constTensor",
     [](Writer& w) {
         auto v = ones(1 << 18);
         nolk::Tensor tensor{{1, 1, 1 << 9, 1 << 9, 3}, v.data()};
         X y = w.constTensor(&tensor);
         w.build(&y, 1);
     },
     3},
    {"slice that writes beyond its output",
     [](Writer& w) {
         X const x = w.input({1, 2, 1, kExtent, 3});
         X y = x;
         for (int i = 0; i < kCount; ++i) y = w.slice(x, {1, 0, 2, 3});
         w.build(&y, 1);
     }},
    {"reduce, reshape, transpose, softmax, l2normalize",
     [](Writer& w) {
         chain(w, w.input({1, 1, 1, kExtent, 3}), kCount, [&](X x) {
             X const y =
                 w.reshape(w.softmax(w.l2normalize(x), nolk::Axis::w), {1, kExtent, 1, 1, 3}, nolk::TensorLayout::nhwc);
             return w.transpose(w.reduce(y, {1, kExtent, 1, 1, 3}, nolk::BasicOp::sum), {{0, 2, 3, 1}});
         });
     }},
    {"matMul of long rows",
     [](Writer& w) {
         X const a = w.input({1, 1, 1, kExtent, 3}), b = w.input({1, 1, kExtent, 1, 3});
         std::vector<X> outputs;
         for (int i = 0; i < kCount; ++i) outputs.push_back(w.matMul(a, b));
         w.build(outputs.data(), kCount);
     }},
    {"matMul and avgPool",
     [](Writer& w) {
         X const a = w.input({1, 1, 64, 64, 3});
         chain(w, a, kCount, [&](X x) { return w.matMul(w.avgPool(x, {1, 1}, {}, {1, 1}), a); });
     }},
};

std::int64_t mostOf(const std::function<void()>& use) {
    const Allocations allocations;
    use();
    return allocations.most();
}

struct Use {
    std::int64_t bytes = 0, milliseconds = 0;
};

Use measure(const std::function<void()>& use) {
    const auto begin = std::chrono::steady_clock::now();
    const std::int64_t bytes = mostOf(use);
    const auto passed = std::chrono::steady_clock::now() - begin;
    return {bytes, std::chrono::duration_cast<std::chrono::milliseconds>(passed).count()};
}

TEST(MemoryBound, HoldsForTheWorstFileOfEachOperation) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter();
        row.record(*writer);
        Bytes file = writer->bytes();
        nolk::InspectionOptions options{row.batch, nolk::InspectionDepth::build, {}};
        nolk::ModelInfo info;
        const std::int64_t inspecting = mostOf([&] { info = nolk::inspectModel(file.data(), file.size(), options); });
        ASSERT_TRUE(info.isBuilt) << info.remark;
        const auto size = static_cast<std::int64_t>(file.size());
        const std::int64_t declared = info.arenaBytes + info.cost.weightBytes;
        const auto boundFor = [&](std::int64_t record) {
            return kConstant + record * info.recordCount + kFile * size + kDeclared * declared;
        };

        const Use loading = measure([&] {
            nolk::Runner* const runner = nolk_new_runner(nullptr, file.data(), static_cast<int>(size), row.batch);
            if (runner) runner->destroy();
        });
        const std::int64_t checking = mostOf([&] { nolk::checkModel(file.data(), file.size()); });
        EXPECT_LE(loading.bytes, boundFor(kLoadedRecord));
        EXPECT_LE(checking, boundFor(kSeenRecord));
        EXPECT_LE(inspecting, boundFor(kSeenRecord));
        if (std::getenv("NOLK_PRINT_BOUNDS"))
            std::printf(
                "%-50s %6d records %9lld file %10lld declared: load %10lld in %lld ms, check %10lld, inspect "
                "%10lld\n",
                row.name, info.recordCount, static_cast<long long>(size), static_cast<long long>(declared),
                static_cast<long long>(loading.bytes), static_cast<long long>(loading.milliseconds),
                static_cast<long long>(checking), static_cast<long long>(inspecting));
    }
}

#ifdef HAS_FAST_BACK_END
// The fast back end packs weights and rounds channels up to blocks of 16; its own arena counts as what is declared.
TEST(MemoryBound, HoldsForTheFastBackEnd) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter();
        row.record(*writer);
        Bytes file = writer->bytes();
        const auto size = static_cast<std::int64_t>(file.size());
        const nolk::ModelInfo info =
            nolk::inspectModel(file.data(), file.size(), {row.batch, nolk::InspectionDepth::records, {}});
        std::int64_t declared = info.cost.weightBytes;
        const Use loading = measure([&] {
            const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
            const nolk::Owned<nolk::RunnerBuilder> builder(new FastRunnerBuilder(nullptr));
            const nolk::Owned<nolk::Runner> runner(
                reader->readFromMemory(builder.get(), row.batch, file.data(), static_cast<int>(size)));
            ASSERT_NE(runner, nullptr);
            declared += 4 * dynamic_cast<const FastRunner&>(*runner).arenaFloats();
        });
        EXPECT_LE(loading.bytes, kConstant + kFastRecord * info.recordCount + kFastFile * size + kDeclared * declared);
        if (std::getenv("NOLK_PRINT_BOUNDS"))
            std::printf("NolkFast: %-50s %6d records %9lld file %10lld declared: load %10lld in %lld ms\n", row.name,
                        info.recordCount, static_cast<long long>(size), static_cast<long long>(declared),
                        static_cast<long long>(loading.bytes), static_cast<long long>(loading.milliseconds));
    }
}
#endif

// A file announces a vector of 32,767 zeros in three bytes. Recorded and built, zeros take no memory.
TEST(MemoryBound, HoldsForVectorsOfZeros) {
    std::vector<float> zeros(32767);
    const nolk::Vector all{32767, zeros.data()};
    const auto build = [&](nolk::RunnerBuilder* made) {
        const nolk::Owned<nolk::RunnerBuilder> builder(made);
        X x = builder->input({1, 1, 1, 1, 3});
        for (int i = 0; i < 1000; ++i) {
            x = builder->instanceNormalization(builder->batchNormalize(x, all, all, all, all, 1.0f), all, all, 1.0f);
            x = builder->prelu(x, zeros.data(), 32767);
        }
        const nolk::Owned<nolk::Runner> runner(builder->build(&x, 1));
        EXPECT_NE(runner, nullptr);
    };
    EXPECT_LE(mostOf([&] { build(nolk_new_runner_builder(nullptr)); }), kConstant + 3000 * kLoadedRecord);
#ifdef HAS_FAST_BACK_END
    EXPECT_LE(mostOf([&] { build(new FastRunnerBuilder(nullptr)); }), kConstant + 3000 * kFastRecord);
#endif
}

// Files that once took memory or time out of proportion, damaged ones among them.
TEST(MemoryBound, HoldsForEveryFinding) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(FINDINGS_FOLDER)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path().filename());
        std::ifstream stream(entry.path(), std::ios::binary);
        const Bytes file{std::istreambuf_iterator<char>(stream), {}};
        const auto size = static_cast<std::int64_t>(file.size());
        std::int64_t declared = 0;
        const Use loading = measure([&] {
            try {
                nolk::loadModel(file.data(), file.size(), 1);
            } catch (const nolk::ModelError&) {
            }
        });
        try {
            const nolk::ModelInfo info =
                nolk::inspectModel(file.data(), file.size(), {1, nolk::InspectionDepth::build, {}});
            declared = info.isBuilt ? info.arenaBytes + info.cost.weightBytes : info.cost.memoryBytes();
        } catch (const nolk::ModelError&) {
        }
        // No record has fewer than four bytes.
        EXPECT_LE(loading.bytes, kConstant + kSeenRecord * (size / 4) + kFile * size + kDeclared * declared);
        if (std::getenv("NOLK_PRINT_BOUNDS"))
            std::printf("%-35s %7lld file %10lld declared: load %10lld in %lld ms\n", entry.path().filename().c_str(),
                        static_cast<long long>(size), static_cast<long long>(declared),
                        static_cast<long long>(loading.bytes), static_cast<long long>(loading.milliseconds));
        ++files;
    }
    EXPECT_GE(files, 35);
}

// Entries of the head info need no record.
TEST(MemoryBound, HoldsForTheHeadInfo) {
    Bytes headInfo;
    for (int i = 0; i < 100000; ++i)
        for (const unsigned char byte : {5, 0, i % 2 ? 0xFF : 0, i % 2 ? 0xFF : 0}) headInfo.push_back(byte);
    headInfo.insert(headInfo.end(), {0, 0});
    const Bytes file = container(2, headInfo, hex("0200 0000 01000000 01000000 01000000 0500 1600 0500"));
    const std::int64_t bound = kConstant + kFile * static_cast<std::int64_t>(file.size());
    EXPECT_LE(mostOf([&] { nolk::inspectModel(file.data(), file.size()); }), bound);
    EXPECT_LE(mostOf([&] { nolk::checkModel(file.data(), file.size()); }), bound);
}

}  // namespace
