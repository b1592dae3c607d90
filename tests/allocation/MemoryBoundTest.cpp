// Loading needs memory in proportion to the file and to what the network declares, for the worst file of each operation
// that is known. NOLK_PRINT_BOUNDS=1 prints the figures.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>

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

const nolk::DimsHW kOne{1, 1};

// Operations in a row, and what they may need.
struct Chain {
    Writer& writer;
    X x, in, second;  // the last result, the inputs
    float* f;         // ones
    int number = 0;   // of the operation

    Writer* operator->() const { return &writer; }
    nolk::Vector vector(int count) const { return {count, f}; }
    nolk::Weights weights(int groups, int outputs, int inputs, int h = 1, int w = 1) const {
        return {groups, outputs, inputs, h, w, false, f, nullptr};
    }
    X convolve(const nolk::Weights& w) const { return writer.convolve(x, {}, kOne, kOne, w); }
    X normalize(int count) const {
        return writer.batchNormalize(x, vector(count), vector(count), vector(count), vector(count), 0.1f);
    }
    X constant(int side) const {
        nolk::Tensor tensor{{1, 1, side, side, 3}, f};
        return writer.constTensor(&tensor);
    }
    X join(std::vector<X> parts) const {
        return writer.concat(parts.data(), static_cast<int>(parts.size()), nolk::Axis::c);
    }
};

using Next = X (*)(Chain& c);

struct Row {
    const char* name;
    nolk::TensorShape in;
    int count;  // of operations
    Next next;
    bool allAreOutputs = false;
    nolk::TensorShape second = {};
    int batch = 1;
};

std::vector<Row> worstRows() {
    constexpr int kCount = 300, kExtent = 8192, kMany = 32767;  // extents of tensors: 32 KB and more
    static const nolk::TensorShape one{1, 1, 1, 1, 3}, plane{1, 1, 64, 64, 3}, large{1, 1, 128, 128, 3};
    static const nolk::TensorShape line{1, 1, 1, kExtent, 3}, column{1, 1, kExtent, 1, 3}, lines{1, 16, 1, kExtent, 3};
    static const nolk::TensorShape channels{1, kExtent, 1, 1, 1}, many{1, kMany, 1, 1, 1};
    static const nolk::SlicePos first{1, 0, 1, 1}, middle{1, 4, 4 + 255 * 8, 1}, beyond{1, 0, 2, 3};
    static const nolk::Padding corner{1, 0, 1, 0}, ends{1, 1, 0, 0};
    static const nolk::Perm turned{{0, 2, 3, 1}};
    constexpr auto linear = nolk::ResizeMode::linear, nearest = nolk::ResizeMode::nearest;
    constexpr auto forward = nolk::Direction::forward;
    std::vector<Row> all;
    const auto row = [&](const char* name, const nolk::TensorShape& in, int count, Next next) {
        all.push_back({name, in, count, next});
    };
    row("relu", one, 20000, [](Chain& c) { return c->relu(c.x); });
    row("add, one tensor used often", one, 20000, [](Chain& c) { return c->add(c.x, c.in); });
    row("concat of 255", one, 2000, [](Chain& c) { return c.join(std::vector<X>(255, c.in)); });
    row("inputs of one element", one, 15999, [](Chain& c) { return c->input(one); });
    row("inputs of 64 KB", large, 999, [](Chain& c) { return c->input(large); });
    row("pad and maxPool, fused", {1, 1, 8, 8, 3}, 8000, [](Chain& c) {
        return c->maxPool(c->pad(c.x, corner), {2, 2}, {}, kOne);
    });
    row("convolve and batchNormalize, fused", {1, 1, 4, 4, 3}, 8000, [](Chain& c) {
        c.x = c.convolve(c.weights(1, 1, 1));
        return c.normalize(1);
    });
    row("convolve with one output channel", {1, 1 << 14, 1, 23, 3}, 1,
        [](Chain& c) { return c.convolve(c.weights(1, 1, 1 << 14, 1, 16)); });
    row("convolve without inputs", {1, 0, 1, 1, 1}, 1, [](Chain& c) {
        c.x = c.normalize(0);
        return c.convolve(c.weights(1, 1 << 28, 0, 2));
    });
    row("convolve of 32767 groups without inputs", {1, 1, 1, 1, 1}, kCount,
        [](Chain& c) { return c->slice(c.convolve(c.weights(kMany, 1, 0)), first); });
    row("convolve with padding over many rows", column, kCount,
        [](Chain& c) { return c->convolve(c.x, ends, kOne, kOne, c.weights(1, 1, 1, 3)); });
    row("concat and slice of channels that do not begin with blocks", {1, 1, 1, 1, 1}, kCount + 1, [](Chain& c) {
        if (c.number > 0) return c->slice(c.join({c.in, c.x}), middle);
        c.in = c.convolve(c.weights(1, 8, 1));
        return c.join(std::vector<X>(255, c.in));
    });
    row("concat of one tensor in blocks", {1, 16, 1, 1, 1}, kCount + 1, [](Chain& c) {
        if (c.number > 0) return c.join(std::vector<X>(255, c.in));
        return c.in = c.convolve(c.weights(16, 1, 1));
    });
    row("deConvolve with a stride above the kernel", {1, 1, 2, 2, 3}, kCount, [](Chain& c) {
        return c->deConvolve(c.in, {}, {8, 8}, kOne, c.weights(1, 1, 1));
    });
    row("deConvolve", line, kCount, [](Chain& c) { return c->deConvolve(c.x, {}, kOne, kOne, c.weights(1, 1, 1)); });
    row("deConvolve with stride 0", column, 1, [](Chain& c) {
        return c->deConvolve(c.x, {}, {0, 1}, kOne, c.weights(1, 1, 1, kExtent));
    });
    row("fullConnect", {1, 512, 1, 1, 1}, 1, [](Chain& c) { return c->fullConnect(c.x, c.weights(1, 512, 512)); });
    row("batchNormalize", many, 10, [](Chain& c) { return c.normalize(kMany); });
    row("prelu", many, 20, [](Chain& c) { return c->prelu(c.x, c.f, kMany); });
    row("instanceNormalization", channels, kCount, [](Chain& c) { return c->instanceNormalization(c.x, 0.1f); });
    row("instanceNormalization, scaled", many, 10,
        [](Chain& c) { return c->instanceNormalization(c.x, c.vector(kMany), c.vector(kMany), 0.1f); });
    row("resize, linear", line, kCount, [](Chain& c) { return c->resize(c.x, line, linear, {}); });
    row("resize, nearest", line, kCount, [](Chain& c) { return c->resize(c.x, column, nearest, {}); });
    row("resize of 16 channels", lines, kCount, [](Chain& c) { return c->resize(c.x, lines, linear, {}); });
    row("convolve and avgPool of 16 channels", lines, kCount,
        [](Chain& c) { return c->avgPool(c.convolve(c.weights(16, 1, 1)), kOne, {}, kOne); });
    row("lstm with one unit", {1, 1, 1, 50000, 3}, 1, [](Chain& c) {
        return c->lstm(c.x, {forward, 1, 50000, 1, c.f, c.f, nullptr, true});
    });
    row("lstm", {1, 1, 1, 256, 3}, 1, [](Chain& c) {
        return c->lstm(c.x, {forward, 1, 256, 256, c.f, c.f, nullptr, true});
    });
    row("slice that writes beyond its output", {1, 2, 1, kExtent, 3}, kCount,
        [](Chain& c) { return c->slice(c.in, beyond); });
    row("reduce, reshape, transpose, softmax, l2normalize", line, kCount, [](Chain& c) {
        X const y = c->softmax(c->l2normalize(c.x), nolk::Axis::w);
        X const flat = c->reshape(y, {1, kExtent, 1, 1, 3}, nolk::TensorLayout::nhwc);
        return c->transpose(c->reduce(flat, {1, kExtent, 1, 1, 3}, nolk::BasicOp::sum), turned);
    });
    row("matMul and avgPool", plane, kCount, [](Chain& c) { return c->matMul(c->avgPool(c.x, kOne, {}, kOne), c.in); });
    all.push_back({"constTensor", one, 1, [](Chain& c) { return c.constant(512); }, false, {}, 3});
    all.push_back({"outputs", plane, 20000, [](Chain& c) { return c.in; }, true});
    all.push_back(
        {"matMul of long rows", line, kCount, [](Chain& c) { return c->matMul(c.in, c.second); }, true, column});
    return all;
}

Bytes fileOf(const Row& row, int version = 4, std::vector<float> values = std::vector<float>(1 << 18, 1.0f)) {
    const nolk::Owned<Writer> writer = nolk::newModelWriter({version, false, {}});
    X const in = writer->input(row.in);
    Chain chain{*writer, in, in, row.second.n > 0 ? writer->input(row.second) : nullptr, values.data()};
    std::vector<X> outputs;
    for (; chain.number < row.count; ++chain.number) {
        chain.x = row.next(chain);
        if (!row.allAreOutputs) outputs.clear();
        outputs.push_back(chain.x);
    }
    writer->build(outputs.data(), static_cast<int>(outputs.size()));
    return writer->bytes();
}

void print(const std::string& line) {
    if (std::getenv("NOLK_PRINT_BOUNDS")) std::puts(line.c_str());
}

// The bytes that a use takes at most.
std::int64_t mostOf(const char* name, const std::function<void()>& use) {
    const auto begin = std::chrono::steady_clock::now();
    const Allocations allocations;
    use();
    const std::int64_t bytes = allocations.most();
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    print(std::string("  ") + name + " " + std::to_string(bytes) + " in " + std::to_string(passed.count()) + " ms");
    return bytes;
}

// What a use may take; prints the figures that it is made of.
std::int64_t boundOf(const std::string& name, const Bytes& file, std::int64_t recordBytes, std::int64_t declared,
                     std::int64_t fileFactor = kFile) {
    const auto size = static_cast<std::int64_t>(file.size());
    print(name + ": " + std::to_string(size) + " bytes of file, " + std::to_string(declared) + " declared");
    return kConstant + recordBytes + fileFactor * size + kDeclared * declared;
}

nolk::Runner* loadExported(Bytes& file, int batch) {
    return nolk_new_runner(nullptr, file.data(), static_cast<int>(file.size()), batch);
}

TEST(MemoryBound, HoldsForTheWorstFileOfEachOperation) {
    for (const Row& row : worstRows()) {
        SCOPED_TRACE(row.name);
        Bytes file = fileOf(row);
        nolk::ModelInfo info;
        const nolk::InspectionOptions options{row.batch, nolk::InspectionDepth::build, {}};
        const auto inspecting = mostOf("inspect", [&] { info = inspectModel(file.data(), file.size(), options); });
        ASSERT_TRUE(info.isBuilt) << info.remark;
        const auto boundFor = [&](std::int64_t record) {
            return boundOf(row.name, file, record * info.recordCount, info.arenaBytes + info.cost.weightBytes);
        };
        const auto load = [&] { const nolk::Owned<nolk::Runner> runner(loadExported(file, row.batch)); };
        EXPECT_LE(mostOf("load", load), boundFor(kLoadedRecord));
        EXPECT_LE(mostOf("check", [&] { nolk::checkModel(file.data(), file.size()); }), boundFor(kSeenRecord));
        EXPECT_LE(inspecting, boundFor(kSeenRecord));
    }
}

#ifdef HAS_FAST_BACK_END
// The fast back end packs weights and rounds channels up to blocks of 16; its own arena counts as what is declared.
TEST(MemoryBound, HoldsForTheFastBackEnd) {
    for (const Row& row : worstRows()) {
        SCOPED_TRACE(row.name);
        Bytes file = fileOf(row);
        const nolk::ModelInfo info =
            nolk::inspectModel(file.data(), file.size(), {row.batch, nolk::InspectionDepth::records, {}});
        std::int64_t declared = info.cost.weightBytes;
        const std::int64_t loading = mostOf("load", [&] {
            const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
            const nolk::Owned<nolk::RunnerBuilder> builder(new FastRunnerBuilder(nullptr));
            const nolk::Owned<nolk::Runner> runner(
                reader->readFromMemory(builder.get(), row.batch, file.data(), static_cast<int>(file.size())));
            ASSERT_NE(runner, nullptr);
            declared += 4 * dynamic_cast<const FastRunner&>(*runner).arenaFloats();
        });
        EXPECT_LE(loading, boundOf("NolkFast: " + std::string(row.name), file, kFastRecord * info.recordCount, declared,
                                   kFastFile));
    }
}
#endif

// Weights are in the layers once, and nowhere else: a load takes 1.2 times their size, and 2.2 times with the bytes of
// a file.
TEST(MemoryBound, WeightsAreCopiedOnce) {
    constexpr int kSide = 1024;  // so that all weights are 4 MB
    std::vector<float> values(kSide * kSide);
    std::iota(values.begin(), values.end(), 1.0f);  // too many for a form that is smaller
    static const nolk::TensorShape channels{1, kSide, 2, 2, 3};
    const Row rows[] = {
        {"fullConnect",
         {1, kSide, 1, 1, 1},
         1,
         [](Chain& c) { return c->fullConnect(c.x, c.weights(1, kSide, kSide)); }},
        {"convolve", channels, 2,
         [](Chain& c) { return c.number == 0 ? c.convolve(c.weights(1, kSide, kSide)) : c.normalize(kSide); }},
        {"deConvolve", channels, 1,
         [](Chain& c) { return c->deConvolve(c.x, {}, kOne, kOne, c.weights(1, kSide, kSide)); }},
        {"constTensor", channels, 1, [](Chain& c) { return c.constant(kSide); }},
    };
    const std::string path = testing::TempDir() + "nolk-memory-bound-" + std::to_string(getpid()) + ".cm";
    for (const Row& row : rows)
        for (const int version : {3, 4}) {
            SCOPED_TRACE(testing::Message() << row.name << ", version " << version);
            Bytes file = fileOf(row, version, values);
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
            const auto load = [&] { EXPECT_TRUE(nolk::Owned<nolk::Runner>(loadExported(file, 1))); };
            const auto loadFile = [&] {
                const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
                const nolk::Owned<nolk::RunnerBuilder> builder(nolk_new_runner_builder(nullptr));
                EXPECT_TRUE(nolk::Owned<nolk::Runner>(reader->readFromFile(builder.get(), 1, path.c_str())));
            };
            const auto size = static_cast<std::int64_t>(file.size());
            EXPECT_LT(mostOf("load", load), size * 12 / 10);
            EXPECT_LT(mostOf("load from a file", loadFile), size * 22 / 10);
        }
    std::remove(path.c_str());
}

// A file announces a vector of 32,767 zeros in three bytes. Recorded and built, zeros take no memory, whether the
// network has as many channels or not.
TEST(MemoryBound, HoldsForVectorsOfZeros) {
    constexpr int kMany = 32767;
    std::vector<float> zeros(kMany);
    const nolk::Vector all{kMany, zeros.data()};
    const auto build = [&](nolk::RunnerBuilder* made, int channels) {
        const nolk::Owned<nolk::RunnerBuilder> builder(made);
        X x = builder->input({1, channels, 1, 1, 3});
        for (int i = 0; i < 1000; ++i) {
            x = builder->instanceNormalization(builder->batchNormalize(x, all, all, all, all, 1.0f), all, all, 1.0f);
            x = builder->prelu(x, zeros.data(), kMany);
        }
        const nolk::Owned<nolk::Runner> runner(builder->build(&x, 1));
        EXPECT_NE(runner, nullptr);
    };
    for (const int channels : {1, kMany}) {
        SCOPED_TRACE(channels);
        const std::int64_t rest = kConstant + kDeclared * 2 * 4 * channels;  // a tensor needs another at a time
        EXPECT_LE(mostOf("build", [&] { build(nolk_new_runner_builder(nullptr), channels); }),
                  rest + 3000 * kLoadedRecord);
#ifdef HAS_FAST_BACK_END
        EXPECT_LE(mostOf("build", [&] { build(new FastRunnerBuilder(nullptr), channels); }), rest + 3000 * kFastRecord);
#endif
    }
}

// Files that once took memory or time out of proportion, damaged ones among them.
TEST(MemoryBound, HoldsForEveryFinding) {
    constexpr nolk::ModelLimits limits{1 << 30};  // a few declare 8 GB
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(FINDINGS_FOLDER)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path().filename());
        std::ifstream stream(entry.path(), std::ios::binary);
        const Bytes file{std::istreambuf_iterator<char>(stream), {}};
        std::int64_t declared = 0, records = static_cast<std::int64_t>(file.size()) / 4;  // none has fewer bytes
        const std::int64_t loading = mostOf("load", [&] {
            try {
                nolk::loadModel(file.data(), file.size(), 1, nullptr, limits);
            } catch (const nolk::ModelError&) {
            }
        });
        try {
            const nolk::ModelInfo info =
                nolk::inspectModel(file.data(), file.size(), {1, nolk::InspectionDepth::build, limits});
            declared = info.isBuilt ? info.arenaBytes + info.cost.weightBytes : info.cost.memoryBytes();
            records = info.recordCount;
        } catch (const nolk::ModelError&) {
        }
        EXPECT_LE(loading, boundOf(entry.path().filename().string(), file, kSeenRecord * records, declared));
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
    EXPECT_LE(mostOf("inspect", [&] { nolk::inspectModel(file.data(), file.size()); }), bound);
    EXPECT_LE(mostOf("check", [&] { nolk::checkModel(file.data(), file.size()); }), bound);
}

}  // namespace
