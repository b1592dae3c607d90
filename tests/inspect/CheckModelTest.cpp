// checkModel on files with one thing wrong each, made by hand, and on ones with nothing wrong.
#include <gtest/gtest.h>
#include <nolk_model.h>

#include <string>
#include <vector>

#include "support/modelBytes.h"

namespace {

// A file of version 2 without head info: the records begin at byte 8.
Bytes version2(const std::string& records) { return container(2, hex("0000"), hex(records)); }

const std::string kInput = "0000 04000000 01000000 01000000 0100 ";   // [n, 4, 1, 1], id 1, bytes 8 to 23
const std::string kInput4 = "0000 02000000 03000000 01000000 0400 ";  // [n, 2, 3, 1], id 4, as long
const std::string kOutput2 = "1600 0200 ";

struct Row {
    const char* what;
    Bytes file;
    std::vector<std::string> findings;  // in order
};

void expectFindings(const Row& row) {
    const nolk::ModelCheck check = nolk::checkModel(row.file.data(), row.file.size());
    std::vector<std::string> findings;
    for (const nolk::ModelFinding& finding : check.findings) findings.push_back(describe(finding));
    EXPECT_EQ(findings, row.findings) << row.what;
    EXPECT_TRUE(check.remark.empty() || !findings.empty()) << row.what << ": " << check.remark;
}

TEST(CheckModel, RecordsThatContradictThemselves) {
    const Row rows[] = {
        {"nothing", version2("0300" + kInput + "0a00 0100 0200 " + kOutput2), {}},
        {"an undefined id, and what depends on it",
         version2("0400" + kInput + "0a00 0700 0200 0a00 0200 0300 1600 0300"),
         {"record 1 (input) at byte 8: warning: its result, id 1, is never used",
          "record 2 (relu) at byte 24: error: id 7 is undefined: no record before has made it",
          "record 4 (output) at byte 36: error: an output must not depend on an undefined id, as record 3 (relu) "
          "does"}},
        {"a dead branch of two operations, and an id made twice",
         version2("0600" + kInput + "0a00 0100 0300 1f00 0300 0300 0a00 0100 0200" + kOutput2 + kOutput2),
         {"record 2 (relu) at byte 24: warning: its result, id 3, is used, but for no output",
          "record 3 (tanh) at byte 30: warning: id 3 is made again, after record 2 (relu)",
          "record 3 (tanh) at byte 30: warning: its result, id 3, is never used",
          "record 6 (output) at byte 46: warning: id 2 is an output already"}},
        {"weights for other channels",
         version2("0300" + kInput + "0600 0100 0200 0100 01000000 05000000 01000000 01000000" +
                  "f(1)f(1)f(1)f(nan)f(1) 00" + kOutput2),
         {"record 2 (fullConnect) at byte 24: warning: weights: 1 of 5 is not finite",
          "record 2 (fullConnect) at byte 24: warning: weights are for 5 input channels, the input has 4"}},
        {"slopes that are refused",
         version2("0300" + kInput + "2300 0100 0200 0100 f(1)" + kOutput2),
         {"record 2 (prelu) at byte 24: error: prelu: input has 4 channels, slopes has 1"}},
        {"a window larger than the plane, and its consumer",
         version2("0400" + kInput + "0800 0100 0300 0300 0300 00000000 0100 0100 0a00 0300 0200" + kOutput2),
         {"record 2 (maxPool) at byte 24: warning: its result [1, 4, -1, -1] holds no values"}},
        {"a concat of shapes that disagree",
         version2("0400" + kInput + kInput4 + "0c00 02 0100 0400 0200 01" + kOutput2),
         {"record 3 (concat) at byte 40: warning: shapes disagree off the axis: input 1 is [1, 2, 3, 1], the first [1, "
          "4, 1, 1]"}},
        {"a product of shapes that disagree",
         version2("0400" + kInput + kInput4 + "2400 0400 0100 0200" + kOutput2),
         {"record 3 (matMul) at byte 40: warning: the second input has 4 channels for 2 channels of the first"}},
        {"one fact that both walks see, and another",
         version2("0300" + kInput + "0200 0100 0200 00000000 0100 0100 0100 0100 0100 01000000 05000000 01000000" +
                  "01000000 f(1)f(nan)f(1)f(1)f(1) 00" + kOutput2),
         {"record 2 (convolve) at byte 24: warning: weights: 1 of 5 is not finite",
          "record 2 (convolve) at byte 24: error: convolve: weights expect 5 input channels, input has 4"}},
        {"a concat of nothing",
         version2("0300" + kInput + "0c00 00 0200 01" + "1600 0100"),
         {"record 2 (concat) at byte 24: error: joins nothing, which ends the process",
          "record 2 (concat) at byte 24: warning: its result, id 2, is never used"}},
    };
    for (const Row& row : rows) expectFindings(row);
}

TEST(CheckModel, ContainersThatAreDamaged) {
    Bytes wrongCrc = container(3, hex("0000"), hex("0200" + kInput + "1600 0100"));
    wrongCrc.back() ^= 1;
    const Row rows[] = {
        {"empty", {}, {"head at byte 0: error: the file is empty"}},
        {"no records", container(1, {}, hex("0000")), {"end at byte 6: warning: there are no records"}},
        {"a version to come", hex("434d 0900 0000"), {"version at byte 2: error: must be 1 to 4, is 9"}},
        {"no end of the head info",
         hex("434d 0200 0500 ff00 01"),
         {"head info at byte 4: error: the file ends within it"}},
        {"a negative length",
         container(2, hex("0500 feff 0000"), hex("0200" + kInput + "1600 0100")),
         {"head info at byte 4: warning: the entry of key 5 has a negative length, -2"}},
        {"a wrong checksum, the records being good",
         wrongCrc,
         {"checksum at byte 28: error: it is not that of the bytes before it"}},
        {"an unknown record",
         version2("0300" + kInput + "6300 0100 0200" + kOutput2),
         {"record 2 (?) at byte 24: error: unknown op code 99, so where the next record begins cannot be told"}},
        {"a count that cannot be",
         version2("0300" + kInput + "2300 0100 0200 ffff"),
         {"record 2 (prelu) at byte 24: error: a count of floats is negative or above 2^31 - 1"}},
        {"more records than there should be",
         version2("0200" + kInput + "1600 0100 0000"),
         {"end at byte 28: warning: 2 bytes left over behind the last record"}},
        {"a record that reaches into the checksum",
         container(3, hex("0000"), hex("0200" + kInput + "1e00 0100 0200")),
         {"record 2 (leakyRelu) at byte 24: error: it reaches into the checksum",
          "end at byte 34: warning: no record names an output of the network"}},
        {"no outputs",
         version2("0100" + kInput),
         {"end at byte 24: warning: no record names an output of the network"}},
        {"a form of floats that is none",
         container(4, hex("0000"), hex("0300" + kInput + "2300 0100 0200 0400 07" + kOutput2)),
         {"record 2 (prelu) at byte 24: error: invalid compress bits: 7"}},
    };
    for (const Row& row : rows) expectFindings(row);
}

TEST(CheckModel, FindingsBeyondTheLimitAreCountedAndErrorsAreFound) {
    const std::string output = "1600 0100 ", undefined = "0a00 0700 0200 ";
    const std::string wrongChannels =
        "0200 0100 0200 00000000 0100 0100 0100 0100 0100 01000000 05000000 01000000"
        "01000000 f(1)f(1)f(1)f(1)f(1) 00";
    // A record 203 times, and another one.
    const struct {
        std::string repeated, last;
        int errors;
        std::vector<std::string> counts;
    } cases[] = {
        {output, undefined, 1, {"end at byte 842: warning: 3 more warnings, not listed"}},
        {output, wrongChannels, 1, {"end at byte 893: warning: 3 more warnings, not listed"}},
        {undefined,
         output,
         200,
         {"end at byte 1246: error: 3 more errors, not listed",
          "end at byte 1246: warning: 205 more warnings, not listed"}},
    };
    for (const auto& c : cases) {
        std::string records = "cd00" + kInput;
        for (int i = 0; i < 203; ++i) records += c.repeated;
        const Bytes file = version2(records + c.last);
        std::vector<std::string> counts;
        int errors = 0, warnings = 0;
        for (const nolk::ModelFinding& finding : nolk::checkModel(file.data(), file.size()).findings) {
            if (finding.operation == "end")
                counts.push_back(describe(finding));
            else
                ++(finding.severity == nolk::Severity::error ? errors : warnings);
        }
        EXPECT_EQ(counts, c.counts);
        EXPECT_EQ(errors, c.errors) << counts.front();
        EXPECT_EQ(warnings, 200) << counts.front();
    }
}

TEST(CheckModel, EveryTruncationIsFound) {
    for (const int version : {1, 2, 4}) {
        const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter({version, false, {}});
        std::vector<float> f(36, 0.5f);
        nolk::TensorX* y = writer->convolve(writer->input({1, 4, 5, 5, 3}), {1, 1, 1, 1}, {1, 1}, {1, 1},
                                            {1, 1, 4, 3, 3, false, f.data(), nullptr});
        writer->build(&y, 1);
        const Bytes& whole = writer->bytes();
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            int errors = 0;
            for (const nolk::ModelFinding& finding : nolk::checkModel(whole.data(), size).findings)
                errors += finding.severity == nolk::Severity::error;
            EXPECT_EQ(errors > 0, size < whole.size()) << "version " << version << ", " << size << " bytes";
        }
    }
}

}  // namespace
