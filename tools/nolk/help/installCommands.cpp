#include "nolk/help/installCommands.h"

#include <CLI/CLI.hpp>

#include "nolk/help/bashCompletion.h"
#include "nolk/help/manPage.h"
#include "nolk/outputFile.h"

void addInstallCommands(CLI::App& app) {
    constexpr const char* kHidden = "";
    app.add_subcommand("manual", "Print the manual page")->group(kHidden)->callback([&app] {
        writeText("-", manPage(app));
    });
    app.add_subcommand("completion", "Print the completion for bash")->group(kHidden)->callback([&app] {
        writeText("-", bashCompletion(app));
    });
}
