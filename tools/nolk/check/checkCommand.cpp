#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>

#include "inspect/format.h"
#include "nolk/commands.h"
#include "nolk/model/Network.h"
#include "nolk/output.h"

namespace {

std::string summary(const nolk::ModelCheck& result) {
    const auto& findings = result.findings;
    const auto errors = std::count_if(findings.begin(), findings.end(), [](const nolk::ModelFinding& finding) {
        return finding.severity == nolk::Severity::error;
    });
    const auto warnings = static_cast<std::ptrdiff_t>(findings.size()) - errors;
    std::string text;
    if (result.recordCount >= 0)
        text = "version " + std::to_string(result.version) + ", " + counted(result.recordCount, "record") + ": ";
    text += findings.empty() ? "nothing wrong" : counted(errors, "error") + ", " + counted(warnings, "warning");
    return text + (result.remark.empty() ? "" : "; " + result.remark);
}

void check(const std::string& model) {
    const std::vector<unsigned char> bytes = readModel(model);
    const nolk::ModelCheck result = nolk::checkModel(bytes.data(), bytes.size(), kExaminationLimits);
    std::string text;
    for (const nolk::ModelFinding& finding : result.findings)
        text += printable(model + ": " + describe(finding)) + "\n";
    writeText("-", text + printable(model + ": " + summary(result)) + "\n");
    if (!result.findings.empty()) throw CLI::RuntimeError(1);
}

}  // namespace

void addCheckCommand(CLI::App& app) {
    const auto model = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("check", "Report everything that is wrong or suspicious in a model file");
    addModel(*command, *model);
    command->footer(
        "Prints a line for each finding, with the record's number (from 1), its operation\n"
        "and its offset in the file. An error means that loading would fail or that the\n"
        "network's result would be undefined. A warning means a probable mistake, such as an\n"
        "operation whose result is never used. The exit status is 0 if there is neither.\n"
        "\n"
        "Example: nolk check digits.cm");
    command->callback([model] { check(*model); });
}
