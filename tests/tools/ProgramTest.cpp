// What all commands of the program have in common.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/Program.h"

namespace {

TEST(Program, WrongUsageIsOneLineAndStatus2) {
    const std::vector<std::vector<std::string>> misuses = {{}, {"frobnicate"}, {"--frobnicate"}};
    for (const auto& arguments : misuses) {
        const ProgramResult r = runProgram(arguments);
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    }
}

TEST(Program, HelpAndVersionAreNoErrors) {
    for (const char* option : {"--help", "--version"}) {
        const ProgramResult r = runProgram({option});
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.out, "");
        EXPECT_EQ(r.err, "");
    }
}

}  // namespace
