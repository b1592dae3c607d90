// A model file as a list of records that can be changed one by one: what the mutator of model files works on.
//   ModelText model(data, size);  model.records.erase(...);  std::vector<unsigned char> file = model.file();
// Reads any bytes, as far as they can be read. file() scrambles, and computes the checksum.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/Operation.h"

// A field of a record, or a part of one.
struct Atom {
    enum class Kind { id, number, real, floats };

    Kind kind = Kind::number;
    int bytes = 0;                    // of a number; dimensions depend on the version
    std::int64_t value = 0;           // of an id, a number, or a real's bits
    std::vector<unsigned char> data;  // of floats, with the byte of their form in version 4
};

// Receives the fields of a record in the order of the file, and supplies the numbers on which later ones depend.
class Fields {
public:
    explicit Fields(int fileVersion) : version(fileVersion) {}
    virtual ~Fields() = default;

    virtual std::int64_t number(Atom::Kind kind, int bytes) = 0;
    virtual void floats(std::int64_t count) = 0;

    const int version;
};

// Goes through the fields of an operation's record, which follow from its row in the table.
void visitFields(const Operation& operation, Fields& fields);

struct RecordText {
    int code = 0;
    std::vector<Atom> atoms;
};

struct ModelText {
    ModelText() = default;
    ModelText(const unsigned char* data, std::size_t size);

    std::vector<unsigned char> file() const;

    int version = 4;
    std::vector<unsigned char> headInfo = {0, 0};
    int surplus = 0;  // what the count of the file says beyond the number of records
    std::vector<RecordText> records;
    std::vector<unsigned char> rest;  // after the last record that could be read
};

// The bytes of a number, little-endian.
void append(std::vector<unsigned char>& bytes, std::int64_t value, int count);
