#include <cmath>

#include "support/Program.h"
#include "support/npyFile.h"
#include "inspect/ModelWriterImpl.h"

namespace {

// [1, 2, 1, 3], handed through abs.
std::string model() {
    ModelWriterImpl writer;
    nolk::TensorX* y = writer.abs(writer.input({1, 2, 1, 3, 3}));
    writer.build(&y, 1);
    return writeTemporary("abs.cm", writer.bytes());
}

std::string arrayFile(const std::string& name, const std::vector<float>& values) {
    return writeTemporary(name, npyFile(npyHeader("(2, 1, 3)"), values));
}

ProgramResult diff(const std::vector<float>& values, const std::vector<float>& expected,
                   std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {"diff", model(), arrayFile("expected.npy", expected), "--input", arrayFile("in.npy", values)});
    return runProgram(arguments);
}

TEST(DiffCommand, TellsTheLargestDifferencesAndTheirPlaces) {
    const ProgramResult r = diff({1, 2, 4, 8, 0.5f, 64}, {1, 2, 4, 8, 0.25f, 62}, {});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "output 0 [1, 2, 1, 3]\n"
              "  maximum absolute difference 2 at [0, 1, 0, 2]: 64, expected 62\n"
              "  maximum relative difference 1 at [0, 1, 0, 1]: 0.5, expected 0.25\n");
    EXPECT_EQ(r.err, "");
}

TEST(DiffCommand, FailsBeyondATolerance) {
    const std::vector<float> zeros(6);
    const struct {
        std::vector<float> values, expected;
        std::vector<std::string> arguments;
        int tooLarge;
    } cases[] = {
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5, 6}, {"--tolerance", "0"}, 0},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5.5f, 6}, {"--tolerance", "0.5"}, 0},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5.5f, 6}, {"--tolerance", "0.4"}, 1},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 4, 8}, {"--rtol", "0.25"}, 0},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 4, 8}, {"--rtol", "0.2"}, 2},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 4, 8}, {"--rtol", "0.2", "--tolerance", "0.4"}, 0},
        {{NAN, INFINITY, 0, 0, 0, 0}, {NAN, INFINITY, 0, 0, 0, 0}, {"--tolerance", "0"}, 0},
        {{NAN, INFINITY, 1, 2, 0, 0}, {1, 3, NAN, INFINITY, 0, 0}, {"--tolerance", "1e30", "--rtol", "9"}, 4},
        {zeros, {1e-9f, 0, 0, 0, 0, 0}, {"--rtol", "0.5"}, 1},
    };
    for (const auto& c : cases) {
        const ProgramResult r = diff(c.values, c.expected, c.arguments);
        EXPECT_EQ(r.status, c.tooLarge > 0 ? 1 : 0) << r.out << r.err;
        const std::string error =
            "nolk: " + model() + ": " + std::to_string(c.tooLarge) + " of 6 values beyond the tolerance\n";
        EXPECT_EQ(r.err, c.tooLarge > 0 ? error : "");
    }
    EXPECT_EQ(diff(zeros, zeros, {}).out, "output 0 [1, 2, 1, 3]: all values are equal\n");
}

TEST(DiffCommand, RefusesExpectedOutputsThatDoNotFit) {
    const std::string wrong = writeTemporary("wrong.npy", npyFile(npyHeader("(3, 2)"), {1, 2, 3, 4, 5, 6}));
    const std::string in = arrayFile("in.npy", {1, 2, 3, 4, 5, 6});
    const ProgramResult shape = runProgram({"diff", model(), wrong, "--input", in});
    EXPECT_EQ(shape.status, 1);
    EXPECT_EQ(shape.err, "nolk: " + wrong + ": shape (3, 2), expected (1, 2, 1, 3)\n");
    const ProgramResult count = runProgram({"diff", model(), in, in, "--input", in});
    EXPECT_EQ(count.status, 1);
    EXPECT_EQ(count.err, "nolk: " + model() + ": 2 arrays given, expected one for each of 1 output\n");
    EXPECT_EQ(runProgram({"diff", model()}).status, 2);
}

}  // namespace
