// Names from a file in messages for people: they may be long, or hold control characters.
#pragma once

#include <string>

namespace convert {

// The name with at most 120 characters, of which none is a control character.
std::string printableName(const std::string& name);

// 'name', likewise.
std::string inQuotes(const std::string& name);

}  // namespace convert
