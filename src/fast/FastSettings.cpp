#include "fast/FastSettings.h"

#include <charconv>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

#include "builder/refuse.h"
#include "builder/utils.h"

namespace {

struct Setting {
    const char* key;
    int FastSettings::*member;
    int smallest, largest;
};

constexpr Setting kSettings[] = {
    {"num_threads", &FastSettings::numThreads, 1, 1024},
    {"spin_us", &FastSettings::spinUs, 0, 20},
    {"arenas", &FastSettings::arenas, 1, 1024},
};

const Setting* find(const std::string& key) {
    for (const Setting& setting : kSettings)
        if (key == setting.key) return &setting;
    return nullptr;
}

int numberOf(const Setting& setting, const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < setting.smallest || number > setting.largest)
        refuse("setting %s must be a number from %d to %d, is '%s'", setting.key, setting.smallest, setting.largest,
               text.c_str());
    return number;
}

}  // namespace

FastSettings FastSettings::parse(const char* cfg) {
    FastSettings settings;
    std::set<std::string> seen;
    std::istringstream texts(cfg ? cfg : "");
    for (std::string text; std::getline(texts, text, ',');) {
        if (trim(text).empty()) continue;
        const std::size_t equals = text.find('=');
        const std::string key = trim(text.substr(0, equals));
        const Setting* const setting = find(key);
        if (!setting) refuse("unknown setting '%s' (NolkFast has num_threads, spin_us and arenas)", key.c_str());
        if (!seen.insert(key).second) refuse("setting %s is given twice", key.c_str());
        settings.*(setting->member) =
            numberOf(*setting, equals == std::string::npos ? "" : trim(text.substr(equals + 1)));
    }
    return settings;
}
