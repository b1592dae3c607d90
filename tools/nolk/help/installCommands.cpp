#include <CLI/CLI.hpp>

#include "nolk/commands.h"
#include "nolk/help/help.h"
#include "nolk/output.h"

void addInstallCommands(CLI::App& app) {
    constexpr const char* kHidden = "";
    app.add_subcommand("manual", "Print the manual page")->group(kHidden)->callback([&app] {
        writeText("-", manPage(app));
    });
    app.add_subcommand("completion", "Print the completion for bash")->group(kHidden)->callback([&app] {
        writeText("-", bashCompletion(app));
    });
}
