// The program nolk: inspects, checks, runs and times model files.
#include <nolk.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "help/HelpFormatter.h"
#include "help/usageError.h"
#include "nolk/commands.h"
#include "nolk/commonOptions.h"
#include "nolk/output.h"

namespace {

constexpr int kFailure = 1, kUsage = 2;

std::string versionText() {
    const std::string version = std::to_string(NOLK_VERSION_MAJOR) + "." + std::to_string(NOLK_VERSION_MINOR) + "." +
                                std::to_string(NOLK_VERSION_PATCH);
    return "nolk " + version + " (interface " + nolk_version() + ")";
}

// Prints one line, even if a file name contains line breaks.
int report(const std::string& what, int status) {
    std::fprintf(stderr, "nolk: %s\n", printable(what).c_str());
    return status;
}

// Requested help is not an error.
int reportUsage(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    return report(error.what(), kUsage);
}

// Parses the command line; the parser then runs the command.
int parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::RuntimeError& e) {
        return e.get_exit_code();  // the command has printed its message already
    } catch (const CLI::ParseError& e) {
        return reportUsage(app, e);
    } catch (const UsageError& e) {
        return report(e.what(), kUsage);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "convert") return startConverter(argv + 1);
    try {
        CLI::App app("Looks into a model file, runs it, times it.", "nolk");
        app.formatter(std::make_shared<HelpFormatter>());
        app.set_help_flag("-h,--help", "print this help, or a command's");
        app.set_version_flag("--version", versionText(), "print the versions of nolk and of its interface");
        app.footer(
            "The exit status is 0 when a command succeeds, 1 when it fails, and 2 for wrong\n"
            "usage. A failure is reported in one line on standard error.");
        app.require_subcommand(1);
        addInfoCommand(app);
        addRunCommand(app);
        addBenchCommand(app);
        addCheckCommand(app);
        addDiffCommand(app);
        addConvertCommand(app);
        addInstallCommands(app);
        const std::string wrong = usageError(app, argc, argv);
        return wrong.empty() ? parse(app, argc, argv) : report(wrong, kUsage);
    } catch (const std::exception& e) {
        return report(e.what(), kFailure);
    }
}
