#include <cmath>

#include "support/Program.h"
#include "support/npyFile.h"

namespace {

// [1, 2, 1, 3], handed through abs.
std::string absModel() {
    return modelFile("abs.cm", [](nolk::RunnerBuilder& b) { return Outputs{b.abs(b.input({1, 2, 1, 3, 3}))}; });
}

std::string arrayFile(const std::string& name, const std::vector<float>& values) {
    return writeTemporary(name, npyFile(npyHeader("(2, 1, 3)"), values));
}

TEST(DiffCommand, TellsTheLargestDifferencesAndFailsBeyondATolerance) {
    const std::vector<float> zeros(6);
    const struct {
        std::vector<float> values, expected;
        std::vector<std::string> arguments;
        int tooLarge;
        std::string out;  // where it matters
    } cases[] = {
        {{1, 2, 4, 8, 0.5f, 64},
         {1, 2, 4, 8, 0.25f, 62},
         {},
         0,
         "output 0 [1, 2, 1, 3]\n"
         "  maximum absolute difference 2 at [0, 1, 0, 2]: 64, expected 62\n"
         "  maximum relative difference 1 at [0, 1, 0, 1]: 0.5, expected 0.25\n"},
        {zeros, zeros, {"--tolerance", "0"}, 0, "output 0 [1, 2, 1, 3]: all values are equal\n"},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5.5f, 6}, {"--tolerance", "0.5"}, 0, {}},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 5.5f, 6}, {"--tolerance", "0.4"}, 1, {}},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 4, 8}, {"--rtol", "0.2"}, 2, {}},
        {{1, 2, 3, 4, 5, 6}, {1, 2, 3, 4, 4, 8}, {"--rtol", "0.2", "--tolerance", "0.4"}, 0, {}},
        {{NAN, INFINITY, 0, 0, 0, 0}, {NAN, INFINITY, 0, 0, 0, 0}, {"--tolerance", "0"}, 0, {}},
        {{NAN, INFINITY, 1, 2, 0, 0}, {1, 3, NAN, INFINITY, 0, 0}, {"--tolerance", "1e30", "--rtol", "9"}, 4, {}},
        {zeros, {1e-9f, 0, 0, 0, 0, 0}, {"--rtol", "0.5"}, 1, {}},
    };
    const std::string model = absModel();
    for (const auto& c : cases) {
        std::vector<std::string> arguments = {"diff", model, arrayFile("expected.npy", c.expected), "--input",
                                              arrayFile("in.npy", c.values)};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const ProgramResult r = runProgram(arguments);
        EXPECT_EQ(r.status, c.tooLarge > 0 ? 1 : 0) << r.out << r.err;
        const std::string error =
            "nolk: " + model + ": " + std::to_string(c.tooLarge) + " of 6 values beyond the tolerance\n";
        EXPECT_EQ(r.err, c.tooLarge > 0 ? error : "");
        EXPECT_EQ(c.out.empty() ? c.out : r.out, c.out);
    }
}

TEST(DiffCommand, RefusesExpectedOutputsThatDoNotFit) {
    const std::string wrong = writeTemporary("wrong.npy", npyFile(npyHeader("(3, 2)"), {1, 2, 3, 4, 5, 6}));
    const std::string in = arrayFile("in.npy", {1, 2, 3, 4, 5, 6}), model = absModel();
    expectRefused({"diff", model},
                  {{{wrong, "--input", in}, wrong + ": shape (3, 2), expected (1, 2, 1, 3)"},
                   {{in, in, "--input", in}, model + ": 2 arrays given, expected one for each of 1 output"},
                   {{}, "EXPECTED is required", 2}});
}

}  // namespace
