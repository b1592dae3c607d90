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
    const std::string digits = "a whole number from 0 to 2147483647, is ";
    for (const Words& command : commandsOf(absModel()))
        expectRefused(
            command,
            {{{"--implementation", "NolkRaw:num_threads=many"},
              "--implementation: num_threads: a whole number from 1 to 1024, is many",
              2},
             {{"--implementation", ":num_threads=0"},
              "--implementation: num_threads: a whole number from 1 to 1024, is 0",
              2},
             {{"--implementation", "NolkRaw:gemm_thresh=1e3"}, "--implementation: gemm_thresh: " + digits + "1e3", 2},
             {{"--implementation", "NolkRaw:gemm_thresh"}, "--implementation: gemm_thresh: " + digits, 2},
             {{"--implementation", "NolkRaw:num_threads=2, foo=1"},
              "--implementation: foo: no such setting of NolkRaw; num_threads, gemm_thresh",
              2},
             {{"--threads", "0"}, "--threads: a whole number from 1 to 1024, is 0", 2}});
}

TEST(Implementation, ALibraryThatIsNotThereIsNamed) {
    const std::string model = absModel();
    for (const Words& command : commandsOf(model)) {
        Words arguments = command;
        arguments.insert(arguments.end(), {"--implementation", "nolk_no_such:a=b"});
        const ProgramResult r = runProgram(arguments);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        const std::string line = "\nnolk: " + model + ": no builder for nolk_no_such:a=b: dlopen 'libnolk_no_such.so'";
        EXPECT_NE(("\n" + r.err).find(line), std::string::npos) << r.err;
    }
}

#ifdef HAS_PLUGIN
TEST(Implementation, APluginRunsTheModelInEveryCommand) {
    const std::string model = absModel(), expected = arrayFile("expected.npy", {-1, 2});
    const std::vector<Words> commands = commandsOf(model);
    const Words choice = {"--implementation", "nolk_test_raw_plugin"};
    const auto with = [&choice](Words arguments, const Words& more) {
        arguments.insert(arguments.end(), choice.begin(), choice.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    };
    EXPECT_EQ(with(commands[0], {}).out, "output 0 [1, 2], the largest values:\n  sample 0:  1: 2,  0: -1\n");
    EXPECT_EQ(with({"diff", model, expected, "--input", commands[0].back()}, {}).out,
              "output 0 [1, 2]: all values are equal\n");
    const Json silent = Json::parse(with(commands[2], {}).out, nullptr, false);
    EXPECT_EQ(silent["implementation"], "nolk_test_raw_plugin");
    EXPECT_TRUE(silent["threads"].is_null());
    const Json two = Json::parse(with(commands[2], {"--threads", "2", "--layers"}).out, nullptr, false);
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
