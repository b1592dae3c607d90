#include "model/BinReader.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <string>

#include "inspect/MessageCollector.h"
#include "model/readFile.h"
#include "support/modelBytes.h"

namespace {

TEST(BinReader, OverflowGivesZeroesForGood) {
    for (const int size : {3, 0, -1, INT_MIN}) {
        const Bytes bytes = hex("010203");
        BinReader in(bytes.data(), size);
        EXPECT_EQ(in.readInt(), 0);
        EXPECT_TRUE(in.overflowed());
        EXPECT_EQ(in.readByte(), 0) << "bytes that were too few for an int are gone";
        for (const int n : {INT_MAX, INT_MAX, -INT_MAX, -8}) EXPECT_EQ(in.step(n), nullptr);
        float untouched = 9.0f;
        for (const int n : {INT_MAX, 1 << 30}) in.readFloats(&untouched, n, false);
        EXPECT_EQ(untouched, 9.0f);
        in.step(INT64_MAX);
        EXPECT_EQ(in.step(INT64_MAX), nullptr);
        EXPECT_TRUE(in.overflowed());
    }
}

TEST(BinReader, NegativeStepsStayAndFullStepsReachTheEnd) {
    const Bytes bytes = hex("010203");
    BinReader in(bytes.data(), 3);
    unsigned char untouched = 77;
    EXPECT_EQ(in.step(-5), bytes.data());
    in.read(&untouched, -1);
    EXPECT_EQ(in.step(3), bytes.data());
    EXPECT_FALSE(in.overflowed());
    in.read(&untouched, 1);
    EXPECT_EQ(untouched, 77);
    EXPECT_TRUE(in.overflowed());
}

TEST(BinReader, Strings) {
    const struct {
        const char* bytes;
        const char* text;
        bool overflows;
    } rows[] = {{"02 4142", "AB", false}, {"ff 00000000", "", false}, {"ff 03000000 414243", "ABC", false},
                {"03 4142", "   ", true}, {"ff ffffffff", "", false}, {"", "", true}};
    for (const auto& row : rows) {
        const Bytes bytes = hex(row.bytes);
        BinReader in(bytes.data(), static_cast<int>(bytes.size()));
        EXPECT_EQ(in.readString(), row.text) << row.bytes;
        EXPECT_EQ(in.overflowed(), row.overflows) << row.bytes;
    }
}

TEST(BinReader, FloatsInEveryForm) {
    // The table's entry i is i + 0.5.
    std::string table = "08";
    for (int i = 0; i < 256; ++i) table += "f(" + std::to_string(i) + ".5)";
    const struct {
        const char* name;
        std::string bytes;
        bool compressed;
        std::vector<float> expected;
        std::int64_t left;
        bool overflows;
    } rows[] = {
        {"plain", "f(1) f(2) f(3)", false, {1, 2, 3}, 0, false},
        {"bits 0", "00 f(1) f(2) f(3)", true, {1, 2, 3}, 0, false},
        {"bits 8", table + "00 ff 02", true, {0.5f, 255.5f, 2.5f}, 0, false},
        {"short plain", "f(1) f(2) 000000", false, {9, 9, 9}, 0, true},
        {"missing indices count as 0", table + "00", true, {0.5f, 0.5f, 0.5f}, 0, true},
        {"bits 16", "10 f(1) f(2) f(3)", true, {9, 9, 9}, 12, false},
    };
    for (const auto& row : rows) {
        std::vector<float> values(3, 9.0f);
        MessageCollector messages;
        const Bytes bytes = hex(row.bytes);
        BinReader in(bytes.data(), static_cast<int>(bytes.size()), &messages);
        in.readFloats(values.data(), 3, row.compressed);
        EXPECT_EQ(values, row.expected) << row.name;
        EXPECT_EQ(in.remaining(), row.left) << row.name;
        EXPECT_EQ(in.overflowed(), row.overflows) << row.name;
        EXPECT_EQ(messages.take(), row.left ? "invalid compress bits: 16" : "") << row.name;
    }
}

TEST(ReadFile, ReadsAllOrSaysWhyNot) {
    const std::string folder = testing::TempDir(), path = folder + "nolk-read-file-test";
    const std::string missing = folder + "no%s%n%dsuch" + std::string(300, 'x');
    const Bytes bytes = hex("00 1a 0d 0a ff");
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), 5);
    MessageCollector messages;
    EXPECT_EQ(readFile(path.c_str(), messages), bytes);
    std::ofstream(path, std::ios::binary | std::ios::trunc).flush();
    EXPECT_TRUE(readFile(path.c_str(), messages).empty());
    EXPECT_EQ(messages.take(), "");

    std::ofstream big(path, std::ios::binary | std::ios::trunc);
    big.seekp(std::streamoff{INT_MAX} + 1);  // a hole: 2 GiB and a byte that take no room
    big.put('x');
    big.close();
    for (const auto& [message, name] :
         {std::pair("can not read file: ", path), {"can not read file: ", folder}, {"can not open file: ", missing}}) {
        EXPECT_TRUE(readFile(name.c_str(), messages).empty());
        EXPECT_EQ(messages.take(), message + name);
    }
    std::remove(path.c_str());
}

}  // namespace
