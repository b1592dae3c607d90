#include "model/ModelReaderImpl.h"

#include <gtest/gtest.h>
#include <nolk_model.h>

#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "model/operations.h"
#include "support/CallLog.h"
#include "support/messages.h"
#include "support/modelBytes.h"
#include "support/values.h"

namespace {

using Lines = std::vector<std::string>;

struct Load {
    CallLog log;
    nolk::Runner* runner = nullptr;
    Lines messages;
    std::string printed;
    bool restored = false;

    explicit Load(Bytes file, int batch = 1) {
        popMessages();
        const Bytes before = file;
        const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
        testing::internal::CaptureStderr();
        runner = reader->readFromMemory(&log, batch, file.data(), static_cast<int>(file.size()));
        printed = testing::internal::GetCapturedStderr();
        messages = popMessages();
        restored = file == before;
    }
};

TEST(ModelReader, ReadsAFileOfEachVersion) {
    const Lines expected = {"#1 = input [2 2 3 4 dims 3]", "#2 = prelu #1 {0.5 -2}", "build #2"};
    for (const char* const golden : kGolden) {
        const Load load(hex(golden), 2);
        EXPECT_EQ(load.log.lines, expected) << golden;
        EXPECT_NE(load.runner, nullptr);
        EXPECT_TRUE(load.restored);
        EXPECT_EQ(load.messages, Lines{});
    }
}

// Two inputs, ids 5 and 6, before the record; its result goes by the id 7 (32 bits a dimension, plain floats).
const char* const kInputs = "0000 01000000 02000000 03000000 0500  0000 04000000 00000000 00000000 0600";

struct RecordRow {
    const char* record;
    const char* call;
};

const RecordRow kRecords[] = {
    {"0000 01000000 02000000 03000000 0700", "input [2 1 2 3 dims 3]"},
    {"0100 0700 01000000 02000000 01000000 f(1) f(2)", "constTensor [2 1 2 1 dims 3] {1 2 1 2}"},
    {"0200 0500 0700 01020304 0500 0600 0700 0800 0200 01000000 01000000 02000000 01000000 f(1) f(2) f(3) f(4) 01 "
     "f(5) f(6)",
     "convolve #1 (top 1 bottom 2 left 3 right 4) 5x6 7x8 2x1x1x2x1 {1 2 3 4} bias {5 6}"},
    {"0300 0500 0700 ff020304", "pad #1 (top 255 bottom 2 left 3 right 4)"},
    {"0400 0500 0700 0000 0200 0300 0100", "transpose #1 (0 2 3 1)"},
    {"0500 0500 0700 ffff 0100 ff7f 0200", "slice #1 (axis -1 start 1 end 32767 step 2)"},
    {"0600 0600 0700 0300 01000000 02000000 01000000 01000000 f(1) f(2) 01 f(3)",
     "fullConnect #2 shared 3x1x2x1x1 {1 2} bias {3}"},
    {"0700 0500 0700 0100 f(1) 0100 f(2) 0200 f(3) f(4) 0000 f(0.25)", "batchNormalize #1 {1} {2} {3 4} {} 0.25"},
    {"0800 0500 0700 0100 0200 03040506 0700 0800", "maxPool #1 1x2 (top 3 bottom 4 left 5 right 6) 7x8"},
    {"0900 0500 0700 0100 0200 03040506 0700 0800", "avgPool #1 1x2 (top 3 bottom 4 left 5 right 6) 7x8"},
    {"0a00 0500 0700", "relu #1"},
    {"0b00 0500 0700 03", "softmax #1 3"},
    {"0c00 03 0500 0600 0500 0700 02", "concat (#1 #2 #1) 2"},
    {"0d00 0500 0600 0700", "add #1 #2"},
    {"0e00 0600 0500 0700", "sub #2 #1"},
    {"0f00 0500 0700", "sigmoid #1"},
    {"1000 0500 0700 06000000 00000000 00000000 01", "reshape #1 [2 6 1 1 dims 1] 1"},
    {"1100 0500 0600 0700", "multiply #1 #2"},
    {"1200 0500 0700", "exp #1"},
    {"1300 0500 0600 0700", "divide #1 #2"},
    {"1400 0500 0700 01000000 02000000 01000000 03", "reduce #1 [2 1 2 1 dims 3] 3"},
    {"1500 0500 0700", "l2normalize #1"},
    {"1700 0500 0700 f(-1) f(6)", "clip #1 -1 6"},
    {"1800 0500 0700 0200 01000000 01000000 f(1) f(2) f(3) f(4) f(5) f(6) f(7) f(8) f(9) f(10) f(11) f(12) f(13) f(14) "
     "f(15) f(16) 00",
     "lstm #1 direction 2 D 2 I 1 H 1 {1 2 3 4 5 6 7 8} {9 10 11 12 13 14 15 16} bias none"},
    {"1900 0500 0700 f(0.25) f(0.5)", "hardSigmoid #1 0.25 0.5"},
    {"1a00 0500 0600 0700", "max #1 #2"},
    {"1b00 0500 0700 f(0.25)", "instanceNormalization #1 0.25"},
    {"1c00 0500 0700 01000000 04000000 06000000 02", "resize #1 [2 1 4 6 dims 3] 2 1"},
    {"1d00 0500 0700", "abs #1"},
    {"1e00 0500 0700 f(0.25)", "leakyRelu #1 0.25"},
    {"1f00 0500 0700", "tanh #1"},
    {"2000 0500 0700 01020304 0500 0600 0700 0800 0100 01000000 01000000 02000000 01000000 f(1) f(2) 00",
     "deConvolve #1 (top 1 bottom 2 left 3 right 4) 5x6 7x8 1x1x1x2x1 {1 2} bias none"},
    {"2100 0500 0700 01000000 04000000 06000000 01 00", "resize #1 [2 1 4 6 dims 3] 1 0"},
    {"2200 0500 0700 0100 f(1) 0100 f(2) f(0.25)", "instanceNormalization #1 {1} {2} 0.25"},
    {"2300 0500 0700 0200 f(1) f(2)", "prelu #1 {1 2}"},
    {"2400 0500 0600 0700", "matMul #1 #2"},
    // and what else a record can say
    {"0100 0700 02000000 00000000 05000000 f(1) f(2)", "constTensor [2 2 1 1 dims 1] {1 2 1 2}"},
    {"0c00 00 0700 01", "concat (null array) 1"},
    {"0d00 0500 0900 0700", "add #1 null"},
    {"1800 0500 0700 ffff 00000000 01000000 f(1) f(2) f(3) f(4) 01 f(1) f(2) f(3) f(4) f(5) f(6) f(7) f(8)",
     "lstm #1 direction -1 D 1 I 0 H 1 {} {1 2 3 4} bias {1 2 3 4 5 6 7 8}"},
    {"0200 0500 0700 00000000 0100 0100 0100 0100 feff fdffffff 01000000 01000000 01000000 f(1) f(2) f(3) f(4) f(5) "
     "f(6) 00",
     "convolve #1 (top 0 bottom 0 left 0 right 0) 1x1 1x1 -2x-3x1x1x1 {1 2 3 4 5 6} bias none"},
    {"0200 0500 0700 00000000 0100 0100 0100 0100 0000 ffffff7f ffffff7f ffffff7f ffffff7f 01",
     "convolve #1 (top 0 bottom 0 left 0 right 0) 1x1 1x1 0x2147483647x2147483647x2147483647x2147483647 {} bias {}"},
};

TEST(ModelReader, EveryRecordBecomesItsCall) {
    for (const RecordRow& row : kRecords) {
        const Bytes body = hex("0400" + std::string(kInputs) + row.record + "1600 0700");
        const Load load(container(2, hex("0000"), body), 2);
        ASSERT_EQ(load.log.lines.size(), 4u) << row.record;
        EXPECT_EQ(load.log.lines[2], std::string("#3 = ") + row.call);
        EXPECT_EQ(load.log.lines[3], "build #3");
        EXPECT_NE(load.runner, nullptr);
    }
}

// A row of the table without a record above would never be read by a test.
TEST(ModelReader, TheRecordsAboveAreAllThatTheTableHas) {
    std::set<int> codes = {22};  // names an output, see below
    for (const RecordRow& row : kRecords) codes.insert(hex(row.record)[0]);
    EXPECT_EQ(codes.size(), std::size(operation::kTable));
}

TEST(ModelReader, DimensionsOfVersion1AreNarrowOutputsKeepTheirOrderAndIdsTheirLastTensor) {
    const std::string records =
        "0700" + std::string(kInputs) + "1600 0600  1600 6300  0a00 0500 0500  1600 0500  1d00 0500 0800";
    const struct {
        int version;
        std::string body;
        Lines lines;
    } rows[] = {
        {1,
         "0400 0000 0100 ffff 0300 0100"
         "0200 0100 0200 00000000 0100 0100 0100 0100 0100 0100 0100 0100 0100 f(1) 00"
         "1800 0100 0300 0000 00000000 00000000 00 1600 0300",
         {"#1 = input [1 1 -1 3 dims 3]",
          "#2 = convolve #1 (top 0 bottom 0 left 0 right 0) 1x1 1x1 1x1x1x1x1 {1} bias none",
          "#3 = lstm #1 direction 0 D 1 I 0 H 0 {} {} bias none", "build #3"}},
        {2,
         records,
         {"#1 = input [1 1 2 3 dims 3]", "#2 = input [1 4 1 1 dims 1]", "#3 = relu #1", "#4 = abs #3",
          "build #2 null #3"}},
        {2, "ffff", {"build"}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Load(container(row.version, hex("0000"), hex(row.body))).log.lines, row.lines);
}

TEST(ModelReader, AReaderUsedTwiceKeepsTensorsAndOutputs) {
    CallLog log;
    const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
    Bytes first = container(1, {}, hex("0200 0000 0100 0100 0100 0100  1600 0100"));
    reader->readFromMemory(&log, 1, first.data(), static_cast<int>(first.size()));
    const std::string path = testing::TempDir() + "nolk-model-reader-test.cm";
    const Bytes second = container(3, hex("0100 0000 0000"), hex("0200 0a00 0100 0200  1600 0200"));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(second.data()), static_cast<std::streamsize>(second.size()));
    EXPECT_EQ(reader->readFromFile(&log, 1, path.c_str()), log.runner());
    std::remove(path.c_str());
    EXPECT_EQ(log.lines, (Lines{"#1 = input [1 1 1 1 dims 3]", "build #1", "#2 = relu #1", "build #1 #2"}));
}

TEST(ModelReader, RefusalsAreReported) {
    const std::string op = "0300" + std::string(kInputs);
    Bytes wrongTrailer = container(3, hex("0000"), hex("0000"));
    wrongTrailer.back() ^= 1;
    const struct {
        Bytes file;
        std::string message;
    } rows[] = {
        {hex("43"), "wrong head: "},
        {hex("434e 0100"), "wrong head: CN"},
        {hex("2573 0100"), "wrong head: %s"},
        {hex("434d 0000 0000"), "unknown ver: 0"},
        {hex("434d 0500 0000"), "unknown ver: 5"},
        {hex("434d ffff 0000"), "unknown ver: -1"},
        {hex("434d 0300"), "model verify failed: wrong crc32"},
        {wrongTrailer, "model verify failed: wrong crc32"},
        {container(4, hex("0000"), hex(op + "7f00")), "unknown op: 127"},
    };
    for (const auto& row : rows) {
        const Load load(row.file);
        EXPECT_EQ(load.runner, nullptr);
        EXPECT_EQ(load.messages, Lines{row.message});
        EXPECT_EQ(load.printed, row.message + "\n");
        EXPECT_TRUE(load.restored);
    }
}

TEST(ModelReader, NullsAreRefusedSilentlyAndWhatBuildThrowsIsAMessage) {
    popMessages();
    CallLog log;
    const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
    Bytes file = hex("434d 0100 0000");
    EXPECT_EQ(reader->readFromMemory(&log, 0, file.data(), 6), nullptr);
    EXPECT_EQ(reader->readFromMemory(&log, 1, nullptr, 6), nullptr);
    EXPECT_EQ(reader->readFromMemory(nullptr, 1, file.data(), 6), nullptr);
    EXPECT_EQ(reader->readFromFile(nullptr, 1, "x"), nullptr);
    EXPECT_EQ(reader->readFromFile(&log, 1, nullptr), nullptr);
    EXPECT_EQ(popMessages(), Lines{});
    EXPECT_EQ(reader->readFromMemory(&log, 1, file.data(), -1), nullptr);
    EXPECT_EQ(popMessages(), Lines{"wrong head: "});
    EXPECT_EQ(log.lines, Lines{});
    log.thrown = "%s%n" + std::string(300, 'y');
    testing::internal::CaptureStderr();
    EXPECT_EQ(reader->readFromMemory(&log, 1, file.data(), 6), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), log.thrown + "\n");
    EXPECT_EQ(popMessages(), Lines{log.thrown.substr(0, 255)});
}

// The body is plain while records are read, and stays so when an exception passes.
TEST(ModelReader, CountsThatCannotBeThrow) {
    const char* const records[] = {
        "2300 0500 0700 ffff",                                                                   // -1 slopes
        "0200 0500 0700 00000000 0100 0100 0100 0100 0100 ffffffff 01000000 01000000 01000000",  // 1 * -1
        "0200 0500 0700 00000000 0100 0100 0100 0100 0200 00000100 00000100 01000000 01000000",  // 2^33
        "0600 0500 0700 0100 ffffff7f ffffff7f ffffff7f ffffff7f",                               // 2^124
        "0100 0700 ffffff7f 01000000 01000000",                                                  // 2^31 - 1, twice
        "1800 0500 0700 0200 ffffff7f 01000000",                                                 // 2^34
    };
    for (const char* const record : records) {
        const Bytes body = hex("0300" + std::string(kInputs) + record);
        Bytes file = container(3, hex("0000"), body);
        CallLog log;
        const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
        EXPECT_THROW(reader->readFromMemory(&log, 2, file.data(), static_cast<int>(file.size())),
                     std::bad_array_new_length)
            << record;
        EXPECT_EQ(Bytes(file.begin() + 6, file.end() - 4), body);
    }
}

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

// The file announces far more floats than it holds, or an unknown form of 256 MB of constants and of weights, of which
// layers have copies. The builder is given zeros for them, in memory that nobody touches.
TEST(ModelReader, FloatsThatAreOnlyAnnouncedTakeNoMemory) {
    const std::string huge = "0100 0700 00000001 04000000 01000000";  // 2^26 floats, 256 MB
    [[maybe_unused]] const long before = peakMegabytes();
    for (const char* const data : {"00", "00 f(1)", "08 f(1)"}) {
        const Load load(container(4, hex("0000"), hex("0300" + std::string(kInputs) + huge + data)), 3);
        EXPECT_EQ(load.runner, nullptr);
        ASSERT_EQ(load.log.lines.size(), 3u);
        EXPECT_EQ(load.log.lines[2], "#3 = constTensor [3 16777216 4 1 dims 3] 201326592 floats");
        EXPECT_EQ(load.messages, Lines{});
        EXPECT_TRUE(load.restored);
    }
    Bytes file = container(4, hex("0000"),
                           hex("0700 0000 00200000 00000000 00000000 0000"
                               "0100 0100 00000001 04000000 01000000 07"
                               "0600 0000 0200 0100 00200000 00200000 01000000 01000000 07 00"
                               "0200 0000 0300 00000000 0100 0100 0100 0100 0100 00200000 00200000 01000000 01000000 07"
                               "00 1600 0100 1600 0200 1600 0300"));
    testing::internal::CaptureStderr();
    nolk::Runner* const runner = nolk_new_runner(nullptr, file.data(), static_cast<int>(file.size()), 1);
    const std::string line = "invalid compress bits: 7\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line + line);
    ASSERT_NE(runner, nullptr);
    runner->destroy();
#ifndef __SANITIZE_THREAD__  // which keeps notes on all memory, touched or not
    EXPECT_LT(peakMegabytes() - before, 220);
#endif
}

// Lengths below 0 take the body's beginning back, at most to the file's; nothing in front of it is touched.
TEST(ModelReader, NegativeHeadInfoLengthsStayInside) {
    for (const char* const length : {"0080", "fcff", "faff", "ffff"}) {
        const Bytes file = container(3, hex("0100" + std::string(length) + "0000"), hex("0000 000000000000"));
        Bytes guarded(64 + file.size(), 0xAB);
        std::copy(file.begin(), file.end(), guarded.begin() + 64);
        const Bytes before = guarded;
        CallLog log;
        nolk::Owned<nolk::ModelReader>(nolk_new_model_reader())
            ->readFromMemory(&log, 1, guarded.data() + 64, static_cast<int>(file.size()));
        EXPECT_EQ(guarded, before) << length;
    }
}

// Of version 2 or 3: the others write dimensions or floats otherwise.
Bytes everyRecord(int version) {
    Bytes body = {static_cast<unsigned char>(2 + std::size(kRecords)), 0};
    const auto append = [&body](const char* text) {
        const Bytes bytes = hex(text);
        body.insert(body.end(), bytes.begin(), bytes.end());
    };
    append(kInputs);
    for (const RecordRow& row : kRecords) append(row.record);
    return container(version, hex("0100 0200 abcd 0000"), body);
}

TEST(ModelReader, EveryTruncationFails) {
    const Bytes file = everyRecord(2);
    ASSERT_NE(Load(file).runner, nullptr);
    const std::size_t firstRecord = 4 + 8 + 2;
    for (std::size_t size = 0; size < file.size(); ++size) {
        const Load load(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)));
        // Where head info or the count are missing, what remains says "no operations", which is a network.
        const bool saysNothing = size >= 4 && size < firstRecord;
        EXPECT_EQ(load.runner != nullptr, saysNothing) << size;
    }
}

// Flipped bits, and files that end early, under a checksum that is right: anything may come of them but a crash or a
// changed buffer.
TEST(ModelReader, DamagedFilesAreHarmless) {
    const Bytes whole = everyRecord(3);
    Values random(1);
    for (std::size_t i = 8; i < whole.size(); ++i)
        for (const bool cut : {false, true}) {
            Bytes file = whole;
            file[i - 4] = static_cast<unsigned char>(file[i - 4] ^ (1 << random.integer(0, 7)));
            if (cut) file.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(i));
            reseal(file);
            try {
                EXPECT_TRUE(Load(file).restored);
            } catch (const std::bad_array_new_length&) {
                testing::internal::GetCapturedStderr();
            }
        }
}

}  // namespace
