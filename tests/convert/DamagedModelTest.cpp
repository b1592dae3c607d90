// Files that somebody has damaged, by chance or on purpose: one error, no crash, no long wait. The fuzzer's own changes
// to the inputs of its corpus; the sanitizers' builds of the tests look on.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

#include "fuzz/target.h"
#include "support/effort.h"

// Where a change by fields is not possible, libFuzzer would change bytes.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t) {
    if (size > 0) data[size / 2] ^= 0x15;
    return size;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);

namespace {

TEST(DamagedModel, ChangedFieldsDoNoHarm) {
    std::set<std::filesystem::path> seeds;  // in the order of their names
    for (const auto& entry : std::filesystem::directory_iterator(ONNX_CORPUS)) seeds.insert(entry.path());
    EXPECT_GT(seeds.size(), 100U);
    const int changes = std::max(effort() / 4, 2);
    unsigned int seed = 0;
    for (const auto& path : seeds) {
        SCOPED_TRACE(path.filename());
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> whole{std::istreambuf_iterator<char>(file), {}};
        for (int i = 0; i < changes; ++i) {
            std::vector<std::uint8_t> bytes(whole.begin(), whole.end());
            bytes.resize(whole.size() + 4096);
            std::size_t size = whole.size();
            for (int k = 0; k <= i % 3; ++k) size = LLVMFuzzerCustomMutator(bytes.data(), size, bytes.size(), ++seed);
            LLVMFuzzerTestOneInput(bytes.data(), size);  // ends the process where something does not hold
        }
    }
}

}  // namespace
