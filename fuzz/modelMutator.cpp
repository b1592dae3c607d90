// Changes model files with knowledge of what they hold: records and their fields instead of scrambled bytes.
#include <nolk_model.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <stdexcept>

#include "fuzz/Choices.h"
#include "fuzz/ModelText.h"
#include "fuzz/Network.h"
#include "fuzz/target.h"
#include "model/operations.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using Bytes = std::vector<unsigned char>;

Bytes randomBytes(std::minstd_rand& random, std::size_t count) {
    Bytes bytes(count);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random() >> 8);
    return bytes;
}

// A network that mostly makes sense, as the writer of libnolk_model stores it.
Bytes newFile(std::minstd_rand& random) {
    const Bytes seed = randomBytes(random, 40 + random() % 200);
    Choices choose(seed.data(), seed.size());
    nolk::ModelFileOptions options;
    options.version = 4 - choose.below(16) / 5;
    const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter(options);
    try {
        Network network(choose, 1);
        std::vector<nolk::TensorX*> outputs = network.record(*writer);
        writer->build(outputs.data(), static_cast<int>(outputs.size()));
    } catch (const std::logic_error&) {
        return {};  // a value that a file cannot hold
    }
    return writer->bytes();
}

// Writes a record's atoms again, where one of them may be replaced; arrays get the length that the numbers before them
// ask for.
class Rewriter final : public Fields {
public:
    Rewriter(int fileVersion, const std::vector<Atom>& given, Choices& choose)
        : Fields(fileVersion), given_(given), choose_(choose) {
        if (!given.empty()) changed_ = static_cast<std::size_t>(choose.below(static_cast<int>(given.size())));
        keepsLengths_ = choose.oneIn(8);
    }

    std::vector<Atom> atoms;

    std::int64_t number(Atom::Kind kind, int bytes) override {
        const std::size_t place = atoms.size();
        Atom atom{kind, bytes, 1 + choose_.below(3), {}};
        if (place < given_.size() && given_[place].kind != Atom::Kind::floats) atom.value = given_[place].value;
        if (place == changed_) atom.value = changed(atom.value, kind);
        // The number as the reader will see it.
        const int unused = 64 - 8 * bytes;
        const auto bits = static_cast<std::uint64_t>(atom.value) << unused;
        atom.value = bytes == 1 ? static_cast<std::int64_t>(bits >> unused) : static_cast<std::int64_t>(bits) >> unused;
        atoms.push_back(atom);
        return atom.value;
    }

    void floats(std::int64_t count) override {
        constexpr std::int64_t kMost = 2048;
        const std::size_t place = atoms.size();
        Atom atom{Atom::Kind::floats, 0, 0, {}};
        if (place < given_.size()) atom.data = given_[place].data;
        if (version > 3 && atom.data.empty()) atom.data.push_back(0);
        if (version > 3 && place == changed_) atom.data[0] = static_cast<unsigned char>(choose_.below(2) * 8);
        if (!keepsLengths_ && count >= 0 && count <= kMost) fit(atom.data, static_cast<std::size_t>(count));
        atoms.push_back(std::move(atom));
    }

private:
    std::int64_t changed(std::int64_t value, Atom::Kind kind) {
        if (kind == Atom::Kind::real) {
            const float real = choose_.real();
            std::int32_t bits;
            std::memcpy(&bits, &real, sizeof bits);
            return bits;
        }
        if (kind == Atom::Kind::id) return choose_.oneIn(8) ? choose_.edge() : choose_.below(8);
        switch (choose_.below(6)) {
            case 0:
                return value + 1;
            case 1:
                return value - 1;
            case 2:
                return value * 2;
            case 3:
                return choose_.edge();
            case 4:
                return choose_.below(10);
            default:
                return choose_.edge() / (1 + choose_.below(9));
        }
    }

    void fit(std::vector<unsigned char>& data, std::size_t count) {
        const std::size_t form = version > 3 ? 1 : 0;
        std::size_t size = form + 4 * count;
        if (form == 1 && data[0] == 8) size = 1 + 1024 + count;
        if (form == 1 && data[0] != 0 && data[0] != 8) size = 1;
        while (data.size() < size) data.push_back(static_cast<unsigned char>(choose_.bits(1)));
        data.resize(size);
    }

    const std::vector<Atom>& given_;
    Choices& choose_;
    std::size_t changed_ = 0;
    bool keepsLengths_ = false;
};

RecordText rewritten(int version, int code, const std::vector<Atom>& given, Choices& choose) {
    Rewriter rewriter(version, given, choose);
    visitFields(*findOperation(code), rewriter);
    return {code, std::move(rewriter.atoms)};
}

void changeHeadInfo(ModelText& model, Choices& choose) {
    const int length = choose.below(6);
    Bytes entry;
    append(entry, choose.below(5), 2);
    append(entry, choose.oneIn(8) ? choose.edge() : length, 2);
    for (int i = 0; i < length; ++i) append(entry, choose.bits(1), 1);
    model.headInfo.insert(model.headInfo.begin(), entry.begin(), entry.end());
}

void change(ModelText& model, Choices& choose) {
    constexpr int kCodes = static_cast<int>(std::size(operation::kTable));
    std::vector<RecordText>& records = model.records;
    const auto place = [&] { return records.begin() + choose.below(static_cast<int>(records.size()) + 1); };
    const int way = choose.below(32);
    if (way == 0) return changeHeadInfo(model, choose);
    if (way == 1) model.surplus = choose.oneIn(4) ? choose.edge() : choose.below(3) - 1;
    if (way == 2) model.rest = Bytes(static_cast<std::size_t>(choose.below(8)), 1);
    if (way == 3) model.version = 1 + choose.below(4);
    if (way <= 3) {
        if (way == 3)
            for (RecordText& record : records) record = rewritten(model.version, record.code, record.atoms, choose);
        return;
    }
    const auto at = place();
    if (way <= 6) {
        // A new record, often of the tensors that are there.
        records.insert(at, rewritten(model.version, choose.below(kCodes), {}, choose));
    } else if (records.empty() || at == records.end()) {
        if (choose.below(2) == 0) records.push_back(rewritten(model.version, 22, {}, choose));
    } else if (way == 7) {
        records.erase(at);
    } else if (way == 8) {
        records.insert(place(), RecordText(*at));
    } else if (way == 9) {
        std::iter_swap(at, records.begin() + choose.below(static_cast<int>(records.size())));
    } else if (way <= 12) {
        *at = rewritten(model.version, choose.below(kCodes), at->atoms, choose);
    } else {
        *at = rewritten(model.version, at->code, at->atoms, choose);
    }
}

std::size_t stored(const Bytes& file, std::uint8_t* data, std::size_t size, std::size_t maxSize) {
    if (file.empty() || file.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    std::copy(file.begin(), file.end(), data);
    return file.size();
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    std::minstd_rand random(seed);
    random.discard(3);
    const unsigned way = (random() >> 8) % 64;
    if (way == 0 || size < 8) return stored(newFile(random), data, size, maxSize);
    const bool isFile = data[0] == 'C' && data[1] == 'M';                   // one target also takes other bytes
    if (way == 1 || !isFile) return LLVMFuzzerMutate(data, size, maxSize);  // mostly breaks the checksum
    const Bytes decisions = randomBytes(random, 128);
    Choices choose(decisions.data(), decisions.size());
    ModelText model(data, size);
    do change(model, choose);
    while (choose.below(2) == 1);
    return stored(model.file(), data, size, maxSize);
}

// Records of both files, with the container of the first.
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* data1, std::size_t size1,
                                                 const std::uint8_t* data2, std::size_t size2, std::uint8_t* out,
                                                 std::size_t maxSize, unsigned int seed) {
    std::minstd_rand random(seed);
    ModelText first(data1, size1);
    const ModelText second(data2, size2);
    if (first.version != second.version) return 0;
    const auto cut = [&](std::size_t count) { return static_cast<std::ptrdiff_t>(random() % (count + 1)); };
    const auto keep = cut(first.records.size()), from = cut(second.records.size());
    first.records.erase(first.records.begin() + keep, first.records.end());
    first.records.insert(first.records.end(), second.records.begin() + from, second.records.end());
    const Bytes file = first.file();
    if (file.size() > maxSize) return 0;
    std::copy(file.begin(), file.end(), out);
    return file.size();
}
