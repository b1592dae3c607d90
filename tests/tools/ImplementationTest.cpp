// --implementation and --threads of all commands that run a model, with a plug-in whose abs negates.
#include <nlohmann/json.hpp>

#include "support/Program.h"
#include "support/npyFile.h"

namespace {

using Json = nlohmann::json;
using Words = std::vector<std::string>;

std::string absModel() {
    return modelFile("abs.cm", [](nolk::RunnerBuilder& b) { return Outputs{b.abs(b.input({1, 2, 1, 1, 1}))}; });
}

std::string arrayFile(const std::string& name, const std::vector<float>& values) {
    return writeTemporary(name, npyFile(npyHeader("(1, 2)"), values));
}

// What each command needs to run that model.
std::vector<Words> commandsOf(const std::string& model) {
    const std::string input = arrayFile("input.npy", {1, -2});
    return {{"run", model, "--input", input},
            {"diff", model, input, "--input", input},
            {"bench", model, "--runs", "1", "--warmup", "1", "--json"}};
}

TEST(Implementation, MeaninglessSettingsOfTheBuiltInOneAreNamedAndRefused) {
    const std::pair<const char*, const char*> rows[] = {
        {"NolkRaw:num_threads=many", "num_threads: a whole number from 1 to 1024, is many"},
        {":num_threads=0", "num_threads: a whole number from 1 to 1024, is 0"},
        {"NolkRaw:gemm_thresh", "gemm_thresh: a whole number from 0 to 2147483647, is "},
        {"NolkRaw:num_threads=2, foo=1", "foo: no such setting of NolkRaw; num_threads, gemm_thresh"},
    };
    for (const Words& command : commandsOf(absModel())) {
        for (const auto& [setting, error] : rows)
            expectRefused(command, {{{"--implementation", setting}, std::string("--implementation: ") + error, 2}});
        expectRefused(command, {{{"--threads", "0"}, "--threads: a whole number from 1 to 1024, is 0", 2}});
    }
}

TEST(Implementation, ALibraryThatIsNotThereIsNamed) {
    const std::string model = absModel();
    for (Words command : commandsOf(model)) {
        command.insert(command.end(), {"--implementation", "nolk_no_such:a=b"});
        const ProgramResult r = runProgram(command);
        EXPECT_EQ(r.status, 1);
        const std::string line = "\nnolk: " + model + ": no builder for nolk_no_such:a=b: dlopen 'libnolk_no_such.so'";
        EXPECT_NE(("\n" + r.err).find(line), std::string::npos) << r.err;
    }
}

#ifdef HAS_FAST_BACK_END
TEST(Implementation, TheFastBackEndRunsEveryCommandAndNamesWrongSettings) {
    const std::string model = absModel(), expected = arrayFile("positive.npy", {1, 2});
    std::vector<Words> commands = commandsOf(model);
    commands[1][2] = expected;
    commands[1].insert(commands[1].end(), {"--tolerance", "0"});
    for (const Words& command : commands) {
        Words arguments = command;
        arguments.insert(arguments.end(), {"--implementation", "NolkFast:spin_us=0", "--threads", "2"});
        const ProgramResult r = runProgram(arguments);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        const std::string refuses = "the implementation NolkFast refuses its settings: ";
        const std::string known = " (NolkFast has num_threads, spin_us and arenas)";
        expectRefused(command,
                      {{{"--implementation", "NolkFast:thread=2"}, refuses + "unknown setting 'thread'" + known},
                       {{"--implementation", "NolkFast:spin_us=-1"},
                        refuses + "setting spin_us must be a number from 0 to 20, is '-1'"}});
    }
    const Words layers = {"bench", model, "--runs", "1", "--json", "--layers", "--implementation", "NolkFast"};
    const Json report = Json::parse(runProgram(layers).out, nullptr, false);
    EXPECT_EQ(report["implementation"], "NolkFast");
    EXPECT_EQ(report["layers"][0]["operation"], "abs");
}
#endif

#ifdef HAS_PLUGIN
TEST(Implementation, APluginRunsTheModelInEveryCommand) {
    const std::string model = absModel(), expected = arrayFile("expected.npy", {-1, 2});
    const auto outputOf = [](Words arguments) {
        arguments.insert(arguments.end(), {"--implementation", "nolk_test_raw_plugin"});
        return runProgram(arguments).out;
    };
    const Words run = commandsOf(model)[0], bench = commandsOf(model)[2];
    EXPECT_EQ(outputOf(run), "output 0 [1, 2], the largest values:\n  sample 0:  1: 2,  0: -1\n");
    EXPECT_EQ(outputOf({"diff", model, expected, "--input", run.back()}), "output 0 [1, 2]: all values are equal\n");
    const Json silent = Json::parse(outputOf(bench), nullptr, false);
    EXPECT_EQ(silent["implementation"], "nolk_test_raw_plugin");
    EXPECT_TRUE(silent["threads"].is_null());
    const Json two =
        Json::parse(outputOf({"bench", model, "--runs", "1", "--json", "--threads", "2", "--layers"}), nullptr, false);
    EXPECT_EQ(two["threads"], 2);
    EXPECT_EQ(two["layers"][0]["operation"], "abs");
}

TEST(Implementation, SettingsReachThePluginAndThreadsReplaceTheirs) {
    for (const Words& command : commandsOf(absModel())) {
        Words arguments = command;
        arguments.insert(arguments.end(), {"--implementation", "nolk_test_raw_plugin:num_threads=x"});
        expectRefused(arguments, {{{}, "the implementation nolk_test_raw_plugin refuses its settings: stol"}});
        arguments.insert(arguments.end(), {"--threads", "2"});
        EXPECT_EQ(runProgram(arguments).status, 0);
    }
    const Words wrapped = {"bench", absModel(), "--runs", "1", "--implementation", "nolk_test_raw_plugin:wrapped=1"};
    EXPECT_EQ(runProgram(wrapped).status, 0);
    const std::string error = "the implementation nolk_test_raw_plugin does not describe its layers";
    expectRefused(wrapped, {{{"--layers"}, error}, {{"--trace", "-"}, error}});
}
#endif

}  // namespace
