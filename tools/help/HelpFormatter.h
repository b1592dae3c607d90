// Formats the text of --help like CLI11, but writes usage and options in the same way as the manual page.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "help/commandLine.h"

class HelpFormatter final : public CLI::Formatter {
public:
    // Positionals come first, because an option that takes several files would take a positional after it as well.
    std::string make_usage(const CLI::App* app, std::string name) const override {
        if (!commandsOf(*app).empty()) return Formatter::make_usage(app, name);
        std::string text = "Usage: " + name;
        for (const CLI::Option* option : app->get_options())
            if (isPositional(*option)) text += " " + positionalOf(*option);
        for (const CLI::Option* option : app->get_options())
            if (isInSynopsis(*option)) text += " " + option->get_name() + " " + valueOf(*option);
        return text + " [OPTIONS]\n";
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        std::string text = Formatter::make_option_opts(option);
        const std::size_t dots = text.find(" ...");
        if (dots != std::string::npos) text.replace(dots, 4, takesSeveral(*option) ? "..." : "");
        return text;
    }
};
