#include "fuzz/ModelText.h"

#include <algorithm>
#include <type_traits>
#include <variant>

#include "model/BinReader.h"
#include "model/container.h"
#include "model/crc32.h"
#include "model/operations.h"

namespace {

constexpr int kId = 2, kShort = 2, kByte = 1, kFloat = 4;

std::int64_t number(Fields& f, int bytes) { return f.number(Atom::Kind::number, bytes); }
std::int64_t dim(Fields& f) { return number(f, f.version == 1 ? 2 : 4); }

void numbers(Fields& f, int count, int bytes) {
    for (int i = 0; i < count; ++i) number(f, bytes);
}

std::int64_t shape(Fields& f) {
    const std::int64_t c = dim(f), h = dim(f), w = dim(f);
    return h == 0 || w == 0 ? c : c * h * w;
}

void weights(Fields& f, bool shared) {
    const std::int64_t groups = number(f, kShort), out = dim(f), in = dim(f), h = dim(f), w = dim(f);
    const std::int64_t copies = shared ? 1 : groups;
    f.floats(copies * out * in * h * w);
    if (number(f, kByte) != 0) f.floats(copies * out);
}

void lstm(Fields& f) {
    const std::int64_t directions = number(f, kShort) == static_cast<int>(nolk::Direction::both) ? 2 : 1;
    const std::int64_t inputs = number(f, 4), hidden = number(f, 4);
    f.floats(inputs * directions * hidden * 4);
    f.floats(hidden * directions * hidden * 4);
    if (number(f, kByte) != 0) f.floats(directions * hidden * 8);
}

template <typename T>
void visitField(Fields& f) {
    if constexpr (std::is_enum_v<T>)
        number(f, kByte);
    else if constexpr (std::is_same_v<T, float>)
        f.number(Atom::Kind::real, kFloat);
    else if constexpr (std::is_same_v<T, nolk::DimsHW>)
        numbers(f, 2, kShort);
    else if constexpr (std::is_same_v<T, nolk::Padding>)
        numbers(f, 4, kByte);
    else if constexpr (std::is_same_v<T, nolk::Perm> || std::is_same_v<T, nolk::SlicePos>)
        numbers(f, 4, kShort);
    else if constexpr (std::is_same_v<T, nolk::TensorShape>)
        shape(f);
    else if constexpr (std::is_same_v<T, nolk::Tensor>)
        f.floats(shape(f));
    else if constexpr (std::is_same_v<T, nolk::Vector>)
        f.floats(number(f, kShort));
    else if constexpr (std::is_same_v<T, nolk::LstmWeights>)
        lstm(f);
    else {
        static_assert(std::is_same_v<T, nolk::Weights> || std::is_same_v<T, SharedWeights>);
        weights(f, std::is_same_v<T, SharedWeights>);
    }
}

template <typename... Types>
void visitKind(std::size_t kind, Fields& fields, const std::variant<Types...>*) {
    static constexpr void (*kVisitors[])(Fields&) = {&visitField<Types>...};
    kVisitors[kind](fields);
}

// Reads atoms from bytes.
class AtomReader final : public Fields {
public:
    AtomReader(int fileVersion, BinReader& in, std::vector<Atom>& atoms)
        : Fields(fileVersion), in_(in), atoms_(atoms) {}

    std::int64_t number(Atom::Kind kind, int bytes) override {
        std::int64_t value = 0;
        if (bytes == 1) value = in_.readByte();
        if (bytes == 2) value = in_.readShort();
        if (bytes == 4) value = in_.readInt();
        atoms_.push_back({kind, bytes, value, {}});
        return value;
    }

    void floats(std::int64_t count) override {
        constexpr int kPlain = 0, kIndexed = 8, kTable = 1024;
        Atom atom{Atom::Kind::floats, 0, 0, {}};
        count = std::clamp<std::int64_t>(count, 0, in_.remaining());
        std::int64_t bytes = count * kFloat;
        if (version > 3) {
            atom.data.push_back(in_.readByte());
            if (atom.data[0] == kIndexed) bytes = kTable + count;
            if (atom.data[0] != kIndexed && atom.data[0] != kPlain) bytes = 0;
        }
        bytes = std::min(bytes, in_.remaining());
        if (const unsigned char* begin = in_.step(bytes)) atom.data.insert(atom.data.end(), begin, begin + bytes);
        atoms_.push_back(std::move(atom));
    }

private:
    BinReader& in_;
    std::vector<Atom>& atoms_;
};

}  // namespace

void visitFields(const Operation& operation, Fields& fields) {
    const auto id = [&] { fields.number(Atom::Kind::id, kId); };
    const bool idIsLast = operation.code == kCodeOf<&nolk::RunnerBuilder::input>;
    const std::int64_t inputs = operation.inputCount == kListOfInputs ? number(fields, kByte) : operation.inputCount;
    for (std::int64_t i = 0; i < inputs; ++i) id();
    if (operation.call && !idIsLast) id();
    for (std::size_t i = 0; i < operation.fieldCount; ++i)
        visitKind(operation.fields[i].kind, fields, static_cast<const Argument*>(nullptr));
    if (idIsLast) id();
}

ModelText::ModelText(const unsigned char* data, std::size_t size) {
    if (size < kHeadBytes) return;
    version = data[2] >= 1 && data[2] <= 4 ? data[2] : 4;
    std::vector<unsigned char> plain(data, data + size);
    std::int64_t body = kHeadBytes;
    if (version > 1) {
        BinReader in(data + kHeadBytes, static_cast<int>(size) - kHeadBytes);
        getHeadInfo(in);
        body = static_cast<std::int64_t>(size) - in.remaining();
        headInfo.assign(data + kHeadBytes, data + body);
    }
    std::int64_t end = static_cast<std::int64_t>(size);
    if (version > 2) {
        end = std::max<std::int64_t>(end - kCrcBytes, body);
        scramble(plain.data(), body, end);
    }
    BinReader in(plain.data() + body, static_cast<int>(end - body));
    const int count = in.readShort();
    while (in.remaining() > 0 && static_cast<int>(records.size()) < count) {
        BinReader ahead = in;
        RecordText record{ahead.readShort(), {}};
        const Operation* const operation = findOperation(record.code);
        if (!operation) break;
        AtomReader reader(version, ahead, record.atoms);
        visitFields(*operation, reader);
        if (ahead.overflowed()) break;
        in = ahead;
        records.push_back(std::move(record));
    }
    surplus = count - static_cast<int>(records.size());
    rest.assign(plain.data() + (end - in.remaining()), plain.data() + end);
}

std::vector<unsigned char> ModelText::file() const {
    std::vector<unsigned char> bytes = {'C', 'M', static_cast<unsigned char>(version), 0};
    if (version > 1) bytes.insert(bytes.end(), headInfo.begin(), headInfo.end());
    const std::size_t body = bytes.size();
    append(bytes, static_cast<int>(records.size()) + surplus, kShort);
    for (const RecordText& record : records) {
        append(bytes, record.code, kShort);
        for (const Atom& atom : record.atoms) {
            append(bytes, atom.value, atom.bytes);
            bytes.insert(bytes.end(), atom.data.begin(), atom.data.end());
        }
    }
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    if (version > 2) {
        scramble(bytes.data(), static_cast<std::int64_t>(body), static_cast<std::int64_t>(bytes.size()));
        append(bytes, GetCRC32(bytes.data(), static_cast<int>(bytes.size())), kCrcBytes);
    }
    return bytes;
}

void append(std::vector<unsigned char>& bytes, std::int64_t value, int count) {
    for (int i = 0; i < count; ++i) bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
}
