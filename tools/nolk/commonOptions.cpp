#include "nolk/commonOptions.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <sstream>

#include "nolk/numberChecks.h"

namespace {

constexpr const char* kBuiltIn = "NolkRaw";
constexpr const char* kThreads = "num_threads";
constexpr int kMostThreads = 1024;

using Settings = std::map<std::string, std::string>;

std::string nameIn(const std::string& implementation) {
    const std::string name = implementation.substr(0, implementation.find(':'));
    return name.empty() ? kBuiltIn : name;
}

std::string settingsTextIn(const std::string& implementation) {
    const std::size_t colon = implementation.find(':');
    return colon == std::string::npos ? "" : implementation.substr(colon + 1);
}

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\n\r");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\n\r") - first + 1);
}

// Parses "key=value, ..."; the last value of each key counts.
Settings settingsIn(const std::string& implementation) {
    Settings settings;
    std::istringstream tokens(settingsTextIn(implementation));
    for (std::string token; std::getline(tokens, token, ',');) {
        const std::size_t equals = token.find('=');
        if (trimmed(token).empty()) continue;
        settings[trimmed(token.substr(0, equals))] =
            equals == std::string::npos ? "" : trimmed(token.substr(equals + 1));
    }
    return settings;
}

std::optional<int> wholeNumberIn(const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional<int>(number) : std::nullopt;
}

// Says what is wrong with the settings of the built-in implementation. Settings of others cannot be checked here.
std::string checkImplementation(const std::string& implementation) {
    if (nameIn(implementation) != kBuiltIn) return "";
    for (const auto& [key, value] : settingsIn(implementation)) {
        if (key != kThreads && key != "gemm_thresh")
            return key + ": no such setting of " + kBuiltIn + "; num_threads, gemm_thresh";
        const int least = key == kThreads ? 1 : 0;
        const int most = key == kThreads ? kMostThreads : std::numeric_limits<int>::max();
        const std::optional<int> number = wholeNumberIn(value);
        if (number && *number >= least && *number <= most) continue;
        std::string text = key;
        text += ": a whole number from " + std::to_string(least) + " to " + std::to_string(most);
        return text += ", is " + value;
    }
    return "";
}

}  // namespace

void addModel(CLI::App& command, std::string& model) {
    command.add_option("MODEL", model, "the model file")->type_name("FILE")->required();
}

void addBatch(CLI::App& command, int& batch, const std::string& description) {
    constexpr int kMost = 1 << 20;
    command.add_option("--batch", batch, description)
        ->type_name("N")
        ->check(wholeNumber(1, kMost))
        ->capture_default_str();
}

void ImplementationOptions::addTo(CLI::App& command) {
    command
        .add_option("--implementation", given_,
                    "what runs the model: NolkRaw, or X for libX.so; with its settings, as NAME:key=value,...")
        ->type_name("NAME[:CFG]")
        ->check(CLI::Validator(std::function<std::string(std::string&)>(checkImplementation), ""));
    command.add_option("--threads", threads_, "threads that one run may use: num_threads of the settings")
        ->type_name("N")
        ->check(wholeNumber(1, kMostThreads));
}

std::string ImplementationOptions::text() const {
    // --threads comes last, because the last value of a setting counts.
    std::string settings = settingsTextIn(given_);
    if (threads_ > 0)
        settings += (settings.empty() ? "" : ",") + std::string(kThreads) + "=" + std::to_string(threads_);
    return name() + (settings.empty() ? "" : ":" + settings);
}

std::string ImplementationOptions::name() const { return nameIn(given_); }

int ImplementationOptions::threads() const {
    if (threads_ > 0) return threads_;
    const Settings settings = settingsIn(given_);
    const auto found = settings.find(kThreads);
    if (found != settings.end()) return wholeNumberIn(found->second).value_or(0);
    return name() == kBuiltIn ? 1 : 0;
}
