#include "nolk/help/help.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "help/commandLine.h"

namespace {

// Escapes text, so that roff does not read parts of it as requests, escapes or hyphens.
std::string roff(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else if ((c == '.' || c == '\'') && (result.empty() || result.back() == '\n'))
            result += std::string("\\&") + c;
        else
            result += c;
    }
    return result;
}

std::string bold(const std::string& text) { return "\\fB" + roff(text) + "\\fR"; }

std::string italic(const std::string& text) { return "\\fI" + roff(text) + "\\fR"; }

std::string paragraph(const std::vector<std::string>& lines) {
    const bool isExample = lines.front().rfind("Example", 0) == 0;
    std::string text = ".PP\n";
    for (const std::string& line : lines) {
        const bool asItIs = isExample || line.rfind("  ", 0) == 0;
        text += asItIs ? ".nf\n" + roff(line) + "\n.fi\n" : roff(line) + "\n";
    }
    return text;
}

std::string paragraphs(const std::string& text) {
    std::string result, line;
    std::vector<std::string> lines;
    std::istringstream in(text + "\n\n");
    while (std::getline(in, line)) {
        if (!line.empty()) {
            lines.push_back(line);
        } else if (!lines.empty()) {
            result += paragraph(lines);
            lines.clear();
        }
    }
    return result;
}

std::string optionNames(const CLI::Option& option) {
    std::string names;
    for (const std::string& name : namesOf(option)) names += (names.empty() ? "" : ", ") + bold(name);
    if (takesValue(option)) names += " " + italic(valueOf(option));
    return names;
}

std::string optionText(const CLI::Option& option) {
    std::string text = ".TP\n" + (isPositional(option) ? italic(positionalOf(option)) : optionNames(option)) + "\n" +
                       roff(option.get_description());
    if (!option.get_default_str().empty()) text += "; " + roff(option.get_default_str()) + " by default";
    return text + "\n";
}

std::string synopsis(const CLI::App& command) {
    std::string text = ".br\n" + bold("nolk " + command.get_name());
    for (const CLI::Option* option : command.get_options())
        if (isPositional(*option)) text += " " + italic(positionalOf(*option));
    for (const CLI::Option* option : command.get_options())
        if (isInSynopsis(*option)) text += " " + optionNames(*option);
    text += " [" + italic("options") + "]";
    return text + "\n";
}

std::string section(const CLI::App& command) {
    std::string text = ".SS " + bold(command.get_name()) + "\n" + roff(command.get_description()) + ".\n";
    for (const bool positionals : {true, false})
        for (const CLI::Option* option : command.get_options())
            if (isPositional(*option) == positionals && option->get_name() != "--help") text += optionText(*option);
    return text + paragraphs(command.get_footer());
}

}  // namespace

std::string manPage(const CLI::App& app) {
    const std::vector<const CLI::App*> commands = commandsOf(app);
    std::string page =
        ".\\\" Made by the program itself, from the text of --help.\n.TH NOLK 1 \"\" nolk \"User Commands\"\n"
        ".SH NAME\nnolk \\- inference for neural networks: look into a model file, run it, time it\n"
        ".SH SYNOPSIS\n";
    for (const CLI::App* command : commands) page += synopsis(*command);
    page += ".br\n" + bold("nolk --help") + " | " + bold("--version") + "\n.SH DESCRIPTION\n" +
            roff(app.get_description()) + "\n.SH OPTIONS\n";
    for (const CLI::Option* option : app.get_options()) page += optionText(*option);
    page += ".SH COMMANDS\n";
    for (const CLI::App* command : commands) page += section(*command);
    return page + ".SH EXIT STATUS\n" + paragraphs(app.get_footer());
}
