// What the manual page and the shell's completion want to know of a command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// The commands that --help names, in its order.
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

// "FILE", "order|time"; with "..." where there may be several.
inline std::string valueOf(const CLI::Option& option) {
    return option.get_type_name() + (option.get_expected_max() > 1 ? "..." : "");
}
