// Compares loading a model with the least work that its format needs: the checksum, unscrambling and scrambling again,
// and one copy of the floats from the file to the layers.
#include <nolk.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "DetectionNetwork.h"
#include "benches.h"
#include "compare.h"
#include "inspect/ModelWriterImpl.h"

namespace {

using Bytes = std::vector<unsigned char>;

// CRC-32, eight bytes per step. Entry i of table k is the remainder of the byte i with k zero bytes after it.
class Crc32 {
public:
    Crc32() {
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t entry = i;
            for (int bit = 0; bit < 8; ++bit) entry = (entry >> 1) ^ ((entry & 1u) ? 0xEDB88320u : 0u);
            tables_[0][i] = entry;
        }
        for (std::size_t k = 1; k < 8; ++k)
            for (std::size_t i = 0; i < 256; ++i) {
                const std::uint32_t before = tables_[k - 1][i];
                tables_[k][i] = (before >> 8) ^ tables_[0][before & 0xFFu];
            }
    }

    std::uint32_t operator()(const unsigned char* bytes, std::size_t count) const {
        std::uint32_t crc = 0xFFFFFFFFu;
        for (; count >= 8; count -= 8, bytes += 8) {
            std::uint32_t low, high;
            std::memcpy(&low, bytes, 4);
            std::memcpy(&high, bytes + 4, 4);
            low ^= crc;
            crc = 0;
            for (std::size_t k = 0; k < 4; ++k)
                crc ^= tables_[7 - k][(low >> 8 * k) & 0xFFu] ^ tables_[3 - k][(high >> 8 * k) & 0xFFu];
        }
        for (; count > 0; --count, ++bytes) crc = tables_[0][(crc ^ *bytes) & 0xFFu] ^ (crc >> 8);
        return ~crc;
    }

private:
    std::array<std::array<std::uint32_t, 256>, 8> tables_{};
};

// Uses local copies of pointer and size. Compilers would assume that writing bytes may change those of the vector, and
// would not vectorise the loop.
void scramble(Bytes& file) {
    unsigned char* const bytes = file.data();
    const std::size_t end = file.size() - 4;
    for (std::size_t i = 6; i < end; ++i) bytes[i] ^= static_cast<unsigned char>(i);
}

void bareLoad(const Crc32& crc32, Bytes& file) {
    std::uint32_t expected;
    std::memcpy(&expected, &file[file.size() - 4], 4);
    if (crc32(file.data(), file.size() - 4) != expected) std::exit(1);
    scramble(file);
    const Bytes layers(file);
    scramble(file);
}

void load(Bytes& file) {
    nolk::Runner* runner = nolk_new_runner(nullptr, file.data(), static_cast<int>(file.size()), 1);
    if (!runner) std::exit(1);
    runner->destroy();
}

void compareLoad(const std::string& name, Bytes file) {
    const auto shared = std::make_shared<Bytes>(std::move(file));
    const auto crc32 = std::make_shared<Crc32>();
    compare(name, {[shared] { load(*shared); }, nullptr}, {[shared, crc32] { bareLoad(*crc32, *shared); }, nullptr}, 0);
}

Bytes fullyConnected5000() {
    constexpr int kExtent = 5000;
    std::vector<float> weights = randomFloats(std::size_t{kExtent} * kExtent);
    ModelWriterImpl writer;
    nolk::TensorX* x = writer.input({1, kExtent, 1, 1, 1});
    nolk::TensorX* y = writer.fullConnect(x, {1, kExtent, kExtent, 1, 1, false, weights.data(), nullptr});
    writer.build(&y, 1);
    return writer.bytes();
}

}  // namespace

void compareLoads() {
    compareLoad("load 100 MB", fullyConnected5000());
    compareLoad("load a detection network, 284 operations", detectionNetwork());
    std::ifstream digits(DIGITS_MODEL, std::ios::binary);
    compareLoad("load the digits network", Bytes{std::istreambuf_iterator<char>(digits), {}});
}
