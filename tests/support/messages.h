// The error channel, for tests.
#pragma once

#include <nolk.h>

#include <string>
#include <vector>

// Takes all that is queued.
inline std::vector<std::string> popMessages() {
    std::vector<std::string> messages;
    char text[300];
    for (nolk_pop_error_message(text, sizeof text); text[0] != '\0'; nolk_pop_error_message(text, sizeof text))
        messages.emplace_back(text);
    return messages;
}
