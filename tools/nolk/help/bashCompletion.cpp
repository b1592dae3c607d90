#include "nolk/help/help.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "help/commandLine.h"

namespace {

using Words = std::vector<std::string>;

std::string joined(const Words& words, const std::string& separator) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
    return text;
}

Words optionsOf(const CLI::App& app) {
    Words words;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : namesOf(*option))
            if (!isPositional(*option)) words.push_back(name);
    return words;
}

// The words that may follow an option whose value is not a file: the values that it lists, or none.
std::string afterOptions(const CLI::App& command) {
    std::string text;
    for (const CLI::Option* option : command.get_options()) {
        if (isPositional(*option) || !takesValue(*option) || option->get_type_name() == "FILE") continue;
        std::string values = option->get_type_name();
        if (values.find('|') == std::string::npos) values.clear();
        std::replace(values.begin(), values.end(), '|', ' ');
        text += "        '" + command.get_name() + " " + joined(namesOf(*option), "' | '" + command.get_name() + " ") +
                "')\n            words='" + values + "'\n            ;;\n";
    }
    return text;
}

constexpr const char* kBegin = R"(# Completion of nolk's command line. Made by the program itself.
_nolk() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' i
    # --option=value arrives as three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $before == '=' ]] && ((COMP_CWORD > 2)); then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -* ]] && continue
        command=${COMP_WORDS[i]}
        break
    done
    COMPREPLY=()
    case "$command $before" in
)";

constexpr const char* kMiddle = R"(        *)
            case $command in
)";

constexpr const char* kEnd = R"(            esac
            # Files where no option begins, and no command is wanted.
            if [[ -n $command && $current != -* ]]; then
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
                return
            fi
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o filenames -F _nolk nolk
)";

std::string wordsOf(const std::string& pattern, const Words& words) {
    const std::string indent(16, ' ');
    return indent + pattern + ")\n" + indent + "    words='" + joined(words, " ") + "'\n" + indent + "    ;;\n";
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    std::string script = kBegin;
    Words first;
    for (const CLI::App* command : commandsOf(app)) first.push_back(command->get_name());
    for (const std::string& option : optionsOf(app)) first.push_back(option);
    for (const CLI::App* command : commandsOf(app)) script += afterOptions(*command);
    script += kMiddle;
    script += wordsOf("''", first);
    for (const CLI::App* command : commandsOf(app)) script += wordsOf(command->get_name(), optionsOf(*command));
    return script + kEnd;
}
