#include "nolk/check/checkCommand.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>

#include "inspect/ModelChecker.h"
#include "nolk/commonOptions.h"
#include "nolk/outputFile.h"
#include "inspect/format.h"

namespace {

struct CheckOptions {
    std::string model;
};

std::string summary(const ModelFile& file, const ModelChecker& checker) {
    const auto& findings = checker.findings();
    const auto errors = std::count_if(findings.begin(), findings.end(), [](const Finding& f) { return f.isError; });
    const auto warnings = static_cast<std::ptrdiff_t>(findings.size()) - errors;
    std::string text = printable(file.path()) + ": ";
    if (file.hasRecords())
        text += "version " + std::to_string(file.version()) + ", " + counted(file.recordCount(), "record") + ": ";
    text += findings.empty() ? "nothing wrong" : counted(errors, "error") + ", " + counted(warnings, "warning");
    return text + (checker.remark().empty() ? "" : "; " + checker.remark()) + "\n";
}

void check(const CheckOptions& options) {
    const ModelFile file(options.model);
    const ModelChecker checker(file);
    std::string text;
    for (const Finding& finding : checker.findings()) text += printable(file.path()) + ": " + describe(finding) + "\n";
    writeText("-", text + summary(file, checker));
    if (!checker.findings().empty()) throw CLI::RuntimeError(1);
}

}  // namespace

void addCheckCommand(CLI::App& app) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App* command = app.add_subcommand("check", "Report everything that is wrong or suspicious in a model file");
    addModel(*command, options->model);
    command->footer(
        "Prints a line for each finding, with the record's number (from 1), its operation\n"
        "and its offset in the file. With an error, loading would fail or the network's\n"
        "result be undefined; a warning is about what can hardly be meant, as an operation\n"
        "whose result is never used. The exit status is 0 only when there is neither.\n"
        "\n"
        "Example: nolk check digits.cm");
    command->callback([options] { check(*options); });
}
