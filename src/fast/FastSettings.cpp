#include "fast/FastSettings.h"

#include <cerrno>
#include <cstdlib>
#include <string>

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

}  // namespace

FastSettings FastSettings::parse(const char* cfg) {
    FastSettings settings;
    for (const auto& [text, value] : cfgToMap(cfg)) {
        const std::string key = trim(text);
        if (key.empty() && value.empty()) continue;
        const Setting* const setting = find(key);
        if (!setting) refuse("unknown setting '%s' (NolkFast has num_threads, spin_us and arenas)", key.c_str());
        char* end = nullptr;
        errno = 0;
        const long number = std::strtol(value.c_str(), &end, 10);
        const bool isNumber = errno == 0 && end != value.c_str() && *end == '\0';
        if (!isNumber || number < setting->smallest || number > setting->largest)
            refuse("setting %s must be a number from %d to %d, is '%s'", key.c_str(), setting->smallest,
                   setting->largest, value.c_str());
        settings.*(setting->member) = static_cast<int>(number);
    }
    return settings;
}
