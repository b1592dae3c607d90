#include "builder/utils.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

constexpr std::size_t kMaxSettings = 511;

void addSetting(const std::string& token, std::map<std::string, std::string>& settings) {
    const std::size_t equals = token.find('=');
    if (equals == std::string::npos)
        settings.emplace(token, "");
    else
        settings[trim(token.substr(0, equals))] = trim(token.substr(equals + 1));
}

}  // namespace

std::string trim(const std::string& text) {
    const char* blanks = " \t\n\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::map<std::string, std::string> cfgToMap(const char* cfg) {
    std::map<std::string, std::string> settings;
    if (!cfg) return settings;
    const std::string text(cfg, strnlen(cfg, kMaxSettings));
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t comma = std::min(text.find(',', begin), text.size());
        if (comma > begin) addSetting(text.substr(begin, comma - begin), settings);
        begin = comma + 1;
    }
    return settings;
}

int intSetting(const std::map<std::string, std::string>& settings, const char* key, int fallback) {
    const auto found = settings.find(key);
    if (found == settings.end()) return fallback;
    return static_cast<int>(std::stol(found->second));
}
