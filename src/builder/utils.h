// Parses the builder's settings: "num_threads = 4, gemm_thresh=100".
#pragma once

#include <map>
#include <string>

// Text without the white space (" \t\n\r") at its ends.
std::string trim(const std::string& text);

// Keys and values of comma-separated settings; text after 511 characters is ignored. A token without '=' gives its key
// an empty value unless the key has one already. Of several tokens with '=' for a key, the last counts. Null gives an
// empty map.
std::map<std::string, std::string> cfgToMap(const char* cfg);

// The number at key, or fallback if there is no such key. Leading blanks and trailing text are ignored. Throws
// std::invalid_argument if there are no digits and std::out_of_range if the number does not fit a long, both with the
// text "stol". Only the low 32 bits of the long are returned.
int intSetting(const std::map<std::string, std::string>& settings, const char* key, int fallback);
