// The builder's settings: "num_threads = 4, gemm_thresh=100".
#pragma once

#include <map>
#include <string>

// Text without the white space (" \t\n\r") at its ends.
std::string trim(const std::string& text);

// Keys and values of comma-separated settings; the first 511 characters count. A token without '=' gives its key an
// empty value, or leaves the value that the key has; of several tokens with '=' the last counts. Null gives an empty
// map.
std::map<std::string, std::string> cfgToMap(const char* cfg);

// The number at key, or fallback where there is no such key. Leading blanks and trailing text are ignored. Throws
// std::invalid_argument for no digits and std::out_of_range beyond a long, both with the text "stol"; the long is cut
// to 32 bits.
int intSetting(const std::map<std::string, std::string>& settings, const char* key, int fallback);
