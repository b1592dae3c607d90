// Queries about commands and options, for the manual page and the shell completion.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// The commands that --help shows, in the same order.
inline std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

inline bool isPositional(const CLI::Option& option) { return option.get_positional(); }

// "--batch", "-h"
inline std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

inline bool takesValue(const CLI::Option& option) {
    return option.get_type_size() > 0 && option.get_expected_max() > 0;
}

// Whether the option takes several words. A comma-separated list is a single word.
inline bool takesSeveral(const CLI::Option& option) {
    return option.get_expected_max() > 1 && option.get_allow_extra_args();
}

// "FILE", "order|time"; with "..." if there may be several.
inline std::string valueOf(const CLI::Option& option) {
    return option.get_type_name() + (takesSeveral(option) ? "..." : "");
}

// "MODEL", "EXPECTED..."
inline std::string positionalOf(const CLI::Option& option) {
    return option.get_name() + (option.get_expected_max() > 1 ? "..." : "");
}

// Whether the usage line names the option: all required ones, and --input, which nearly every network needs.
inline bool isInSynopsis(const CLI::Option& option) {
    return !isPositional(option) && (option.get_required() || option.get_name() == "--input");
}
