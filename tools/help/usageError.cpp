#include "help/usageError.h"

#include <CLI/CLI.hpp>
#include <cctype>

#include "help/commandLine.h"

namespace {

// "info, run or bench"
std::string commandNames(const CLI::App& app) {
    std::string text;
    const std::vector<const CLI::App*> commands = commandsOf(app);
    for (std::size_t i = 0; i < commands.size(); ++i) {
        if (i > 0) text += i + 1 < commands.size() ? ", " : " or ";
        text += commands[i]->get_name();
    }
    return text;
}

const CLI::App* commandCalled(const CLI::App& app, const std::string& name) {
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (command->get_name() == name) return command;
    return nullptr;
}

// Negative numbers and "-" are values.
bool isOption(const std::string& word) {
    return word.size() > 1 && word[0] == '-' && (word[1] == '-' || std::isalpha(static_cast<unsigned char>(word[1])));
}

}  // namespace

std::string usageError(const CLI::App& app, int argc, const char* const* argv) {
    const bool hasCommands = !commandsOf(app).empty();
    const CLI::App* command = hasCommands ? nullptr : &app;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--") break;
        if (isOption(word)) {
            const std::string name = word.substr(0, word.find('='));
            const CLI::App& owner = command ? *command : app;
            const std::string call = app.get_name() + (&owner == &app ? "" : " " + owner.get_name());
            if (!owner.get_option_no_throw(name)) return name + ": no such option; see " + call + " --help";
            if (!command) return {};  // help, or the version
        } else if (!command) {
            command = commandCalled(app, word);
            if (!command) return word + ": no such command; " + commandNames(app);
        }
    }
    return command ? "" : "no command; " + commandNames(app) + "; see " + app.get_name() + " --help";
}
