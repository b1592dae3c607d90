#include "inspect/peakBytes.h"

#include <fstream>
#include <string>

std::int64_t peakBytes() {
    // getrusage would include the memory that the process had before it executed this program.
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (std::int64_t kibibytes; word == "VmHWM:" && status >> kibibytes) return kibibytes * 1024;
    return -1;
}
