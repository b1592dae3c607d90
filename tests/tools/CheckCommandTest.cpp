// What nolk check prints of the findings; tests/inspect/CheckModelTest.cpp has the findings.
#include "support/Program.h"

namespace {

TEST(CheckCommand, PrintsALineForEachFindingAndASummary) {
    const std::string cut = writeTemporary("cut.cm", fileText(kDigitsModel).substr(0, 50000));
    const std::string unused = modelFile("unused.cm", [](nolk::RunnerBuilder& b) {
        nolk::TensorX* const x = b.input({1, 4, 1, 1, 1});
        b.tanh(x);
        return Outputs{b.relu(x)};
    });
    const struct {
        std::string model, out;
        int status;
    } cases[] = {
        {kDigitsModel, kDigitsModel + ": version 4, 15 records: nothing wrong\n", 0},
        {cut,
         cut + ": record 11 (fullConnect) at byte 7187: error: the file ends within it\n" + cut +
             ": checksum at byte 49996: error: it is not that of the bytes before it\n" + cut +
             ": version 4, 15 records: 2 errors, 0 warnings\n",
         1},
        {unused,
         unused + ": record 2 (tanh) at byte 24: warning: its result, id 1, is never used\n" + unused +
             ": version 4, 4 records: 0 errors, 1 warning\n",
         1},
    };
    for (const auto& c : cases) {
        const ProgramResult r = runProgram({"check", c.model});
        EXPECT_EQ(r.status, c.status) << c.model;
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
    }
}

}  // namespace
