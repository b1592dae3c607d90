#include <cmath>

#include "support/Program.h"
#include "support/npyFile.h"

namespace {

const std::string kThree = DIGITS_FOLDER "/digit-3.pgm", kEight = DIGITS_FOLDER "/digit-8.pgm";

// Grey values as the network wants them.
std::vector<float> pixelsOf(const std::string& image) {
    const std::string bytes = fileText(image);
    std::vector<float> values;
    for (std::size_t i = bytes.size() - 784; i < bytes.size(); ++i)
        values.push_back(static_cast<float>(static_cast<unsigned char>(bytes[i]) * (1.0 / 255)));
    return values;
}

// Two inputs, [n, 3, 1, 2] and a matrix [n, 2], handed through relu.
std::string twoInputs() {
    return modelFile("two.cm", [](nolk::RunnerBuilder& b) {
        return Outputs{b.relu(b.input({1, 3, 1, 2, 3})), b.relu(b.input({1, 2, 1, 1, 1}))};
    });
}

// Runs the program and returns the bytes of its outputs' files.
std::vector<std::string> outputsOf(std::vector<std::string> arguments, std::size_t count) {
    std::vector<std::string> files;
    for (std::size_t i = 0; i < count; ++i) files.push_back(temporaryPath("out" + std::to_string(i) + ".npy"));
    arguments.insert(arguments.begin(), "run");
    arguments.emplace_back("--output");
    arguments.insert(arguments.end(), files.begin(), files.end());
    const ProgramResult r = runProgram(arguments);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "");
    std::vector<std::string> bytes;
    for (const std::string& file : files) bytes.push_back(fileText(file));
    return bytes;
}

// A window larger than its input: the extents are -1, and the file that is written can be read again.
TEST(RunCommand, AnOutputWithoutValuesIsAnEmptyFile) {
    const std::string model = modelFile("empty.cm", [](nolk::RunnerBuilder& b) {
        return Outputs{b.maxPool(b.input({1, 2, 1, 1, 3}), {3, 3}, {}, {1, 1})};
    });
    const std::string input = writeTemporary("two.raw", rawFloats({1, 2}));
    const std::string file = outputsOf({model, "--input", input}, 1)[0];
    EXPECT_NE(file.find("'shape': (1, 2, 0, 0)"), std::string::npos) << file;
    EXPECT_EQ(runProgram({"diff", model, writeTemporary("empty.npy", file), "--input", input}).status, 0);
    const std::string fewer = modelFile("fewer.cm", [](nolk::RunnerBuilder& b) {
        return Outputs{b.slice(b.input({1, 2, 1, 1, 1}), {1, 2, 0, 1})};
    });
    EXPECT_EQ(runProgram({"run", fewer, "--input", input}).out, "output 0 [1, -2], the largest values:\n  sample 0:\n");
}

TEST(RunCommand, PrintsTheLargestOfEachSampleAndTheRangeOfOtherTensors) {
    const ProgramResult digits =
        runProgram({"run", kDigitsModel, "--input", kThree, kEight, "--batch", "2", "--scale", "1/255"});
    EXPECT_EQ(digits.status, 0) << digits.err;
    EXPECT_EQ(digits.out.find("output 0 [2, 10], the largest values:\n  sample 0:  3: 0.99"), 0u) << digits.out;
    EXPECT_NE(digits.out.find("\n  sample 1:  8: 0.99"), std::string::npos) << digits.out;
    const std::string bytes = npyFile(npyHeader("(1, 3, 1, 2)"), {-1, 0.5f, NAN, 2, 3, NAN});
    const ProgramResult r = runProgram(
        {"run", twoInputs(), "--input", writeTemporary("a.npy", bytes), writeTemporary("b.raw", rawFloats({NAN, 1}))});
    EXPECT_EQ(r.out,
              "output 0 [1, 3, 1, 2]\n  minimum 0, maximum 3, mean 1.375\n  2 of 6 values are NaN\n"
              "output 1 [1, 2], the largest values:\n  sample 0:  1: 1\n  1 of 2 values are NaN\n");
}

TEST(RunCommand, TakesTheSameNumbersInEveryForm) {
    const std::vector<float> pixels = pixelsOf(kThree);
    const std::vector<std::string> expected = outputsOf({kDigitsModel, "--input", kThree, "--scale", "1/255"}, 1);
    EXPECT_EQ(expected[0].substr(0, 10), std::string("\x93NUMPY\x01\x00\x76\x00", 10));
    EXPECT_EQ(expected[0].substr(10, 61), "{'descr': '<f4', 'fortran_order': False, 'shape': (1, 10), } ");
    EXPECT_EQ(expected[0].size(), 128u + 10 * sizeof(float));
    const std::string files[] = {
        writeTemporary("plain.NPY", npyFile(npyHeader("(1, 1, 28, 28)"), pixels)),
        writeTemporary("version3.npy",
                       npyFile("{\"shape\":( 1L,28,28 ) ,\"fortran_order\" :False,\"descr\":\"<f4\"}   ", pixels, 3)),
        writeTemporary("floats.raw", rawFloats(pixels)),
    };
    for (const std::string& file : files) EXPECT_EQ(outputsOf({kDigitsModel, "--input", file}, 1), expected) << file;
}

TEST(RunCommand, TakesAFileForAnInputOrForASample) {
    const auto file = [](const char* name, const std::vector<float>& values) {
        return writeTemporary(name, rawFloats(values));
    };
    const std::string two = twoInputs(), first = file("0", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    const auto samples = outputsOf({two, "--batch", "2", "--input", file("1", {1, 2, 3, 4, 5, 6}),
                                    file("2", {7, 8, 9, 10, 11, 12}), file("3", {1, 2}), file("4", {3, 4})},
                                   2);
    EXPECT_EQ(samples, outputsOf({two, "--batch", "2", "--input", first, file("5", {1, 2, 3, 4})}, 2));
    EXPECT_EQ(npyValues(samples[0]), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(npyValues(samples[1]), (std::vector<float>{1, 2, 3, 4}));
}

TEST(RunCommand, SaysInOneLineWhatIsWrongAndWhatWasExpected) {
    const std::vector<float> pixels = pixelsOf(kThree);
    const std::string npy = npyFile(npyHeader("(28, 28)"), pixels), pgm = fileText(kThree);
    const auto withHeader = [&](const std::string& header) { return npyFile(header, pixels); };
    const struct {
        std::string name, bytes, wish;
    } cases[] = {
        {"a.npy", "abc", "not a .npy file"},
        {"a.npy", npyFile(npyHeader("(28, 28)"), pixels, 4), ".npy format version 4.0, expected 1.0 to 3.0"},
        {"a.npy", npy.substr(0, 60), "header of 62 bytes, 50 are left"},
        {"a.npy", npy + "x", "3137 bytes of values, expected 3136"},
        {"a.npy", withHeader("{'descr': '<f4', 'fortran_order': False}"), "damaged .npy header: no 'shape'"},
        {"a.npy", withHeader("{'descr': '<f8', 'fortran_order': False, 'shape': (28, 28)}"),
         "float64 ('<f8'), expected float32 ('<f4')"},
        {"a.npy", withHeader("{'descr': '<f4', 'fortran_order': True, 'shape': (28, 28)}"),
         "Fortran order, expected C order"},
        {"a.npy", withHeader(npyHeader("(784, 1)")), "shape (784, 1), expected (1, 1, 28, 28)"},
        {"a.npy", withHeader(npyHeader("(9223372036854775807,)")), "expected (1, 1, 28, 28)"},
        {"a.npy", withHeader(npyHeader("(28, -28)")), "damaged .npy header: 'shape' is no tuple of extents"},
        {"a.raw", "abcd", "4 bytes, expected 3136 for the floats of [1, 1, 28, 28]"},
        {"a.pgm", "P2 1 1 255 7", "not a PNG, JPEG, or binary PGM or PPM image"},
        {"a.pgm", "P5 28 99999999999 255\n", "damaged image"},
        {"a.pgm", "P5 28 28 0\n", "damaged image: maximum 0, expected 1 to 65535"},
        {"a.ppm", "P6 28 29 255\n", "image of [3, 29, 28], expected [1, 28, 28] (channels, rows, columns)"},
        {"a.pgm", pgm.substr(0, 700), "687 bytes of pixels, expected 784"},
    };
    for (const auto& c : cases) {
        const std::string file = writeTemporary(c.name, c.bytes);
        expectOneError(runProgram({"run", kDigitsModel, "--input", file}), file + ": ", c.wish);
    }
}

TEST(RunCommand, CallsInputsAndOutputsByTheNamesInTheFile) {
    const auto record = [](nolk::RunnerBuilder& b) { return Outputs{b.relu(b.input({1, 2, 1, 1, 1}))}; };
    const auto entry = [](int key, const std::string& text) { return nolk::HeadInfo{key, {text.begin(), text.end()}}; };
    constexpr int kInputName = 1, kOutputName = 2;
    const std::string model =
        modelFile("named.cm", record, {4, false, {entry(kInputName, "image"), entry(kOutputName, "scores")}});
    const std::string two = writeTemporary("two.raw", rawFloats({1, 2})),
                      one = writeTemporary("one.raw", std::string("abcd"));
    expectRefused({"run", model},
                  {{{}, model + ": no --input, expected files: 1 for \"image\" [1, 2]", 2},
                   {{"--input", one}, one + ": 4 bytes, expected 8 for the floats of [1, 2], for the input \"image\""},
                   {{"--input", two, "--output", "a", "b"}, model + ": 2 output files, expected 1: \"scores\""}});
    EXPECT_EQ(runProgram({"run", model, "--input", two}).out.find("output 0 \"scores\" [1, 2]"), 0u);
}

TEST(RunCommand, RefusesArgumentsThatDoNotFit) {
    const std::string kept = writeTemporary("kept.npy", std::string("as before"));
    expectRefused(
        {"run", kDigitsModel},
        {{{"--input", "no-such.pgm"}, "no-such.pgm: no such file"},
         {{"--input", "/dev/zero"}, "/dev/zero: not a regular file"},
         {{}, kDigitsModel + ": no --input, expected files: 1 for [1, 1, 28, 28]", 2},
         {{"--batch", "2", "--input", kThree, kThree, kThree},
          kDigitsModel + ": 3 input files, expected 1 or 2 for [2, 1, 28, 28]"},
         {{"--batch", "2", "--input", kThree}, kThree + ": one image, expected 2: give a file for each sample"},
         {{"--input", kThree, "--mean", "1,2,3"}, kThree + ": 3 means, expected 1"},
         {{"--input", kThree, "--output", "a", "b"}, kDigitsModel + ": 2 output files, expected 1"},
         {{"--input", kThree, "--output", "-", "-"}, "--output: only one can go to standard output", 2},
         {{"--input", kThree, "--output", "/dev/full"}, "/dev/full: cannot be written: No space left on device"},
         {{"--input", kThree, "--output", kept + "/x.npy"}, kept + "/x.npy: cannot be written: Not a directory"},
         {{"--input", kThree, "--scale", "1/x"}, "--scale: a number or a quotient of two, is 1/x", 2},
         {{"--input", kThree, "--batch", "0"}, "--batch: a whole number from 1 to 1048576, is 0", 2}});
    EXPECT_EQ(fileText(kept), "as before");
}

}  // namespace
