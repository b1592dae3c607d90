#include "fast/layers/FastPackedWeights.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>

#include "fast/hugePages.h"

namespace {

// Of neighbouring pairs of floats, in chains that the processor computes side by side. Equal hashes are only a hint;
// the floats themselves are compared.
std::uint64_t hashOf(const FastPackedFloats& floats) {
    constexpr std::size_t kChains = 8;
    std::uint64_t chains[kChains] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (std::size_t i = 0; i + 2 * kChains <= floats.count; i += 2 * kChains)
        for (std::size_t c = 0; c < kChains; ++c) {
            std::uint64_t bits = 0;
            std::memcpy(&bits, floats.data() + i + 2 * c, sizeof bits);
            chains[c] = (chains[c] ^ bits) * 0x9e3779b97f4a7c15u;
            chains[c] ^= chains[c] >> 29;
        }
    std::uint64_t hash = floats.count;
    for (const std::uint64_t chain : chains) hash = (hash ^ chain) * 0x9e3779b97f4a7c15u;
    return hash;
}

bool same(const FastPackedFloats& a, const FastPackedFloats& b) {
    return a.count == b.count && std::memcmp(a.data(), b.data(), a.count * sizeof(float)) == 0;
}

// guarded by mutex
std::mutex mutex;
std::multimap<std::uint64_t, std::weak_ptr<const FastPackedFloats>>& knownFloats() {
    static auto* const known = new std::multimap<std::uint64_t, std::weak_ptr<const FastPackedFloats>>;
    return *known;  // never destroyed: runners may outlive static objects
}

}  // namespace

FastPackedFloats::FastPackedFloats(std::size_t n) : memory(zerosInHugePages(n)), count(n) {}

FastPacked shareFloats(std::unique_ptr<FastPackedFloats> floats) {
    const std::uint64_t hash = hashOf(*floats);
    const std::lock_guard lock(mutex);
    auto& known = knownFloats();
    // Only a file that is made for it has many arrays of one hash; comparing each with all would take very long.
    constexpr int kMostAlike = 8;
    int alike = 0;
    const auto [begin, end] = known.equal_range(hash);
    for (auto it = begin; it != end;) {
        FastPacked other = it->second.lock();
        if (other && same(*other, *floats)) return other;
        alike += other ? 1 : 0;
        it = other ? std::next(it) : known.erase(it);
    }
    if (alike >= kMostAlike) return floats;
    static std::size_t mostEntries = 64;
    if (known.size() > mostEntries) {
        for (auto it = known.begin(); it != known.end();) it = it->second.expired() ? known.erase(it) : std::next(it);
        mostEntries = 2 * known.size() + 64;
    }
    FastPacked shared = std::move(floats);
    known.emplace(hash, shared);
    return shared;
}
