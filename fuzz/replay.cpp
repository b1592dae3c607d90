// Runs a target on the given files and every file of the given folders, in the order of their names: the corpus as a
// test, with any compiler.
//   nolk_replay_model fuzz/corpus/model fuzz/corpus/findings
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesIn(int count, char** folders) {
    std::vector<fs::path> files;
    for (int i = 0; i < count; ++i) {
        if (!fs::is_directory(folders[i])) {
            files.emplace_back(folders[i]);
            continue;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(folders[i]))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<fs::path> files = filesIn(argc - 1, argv + 1);
    const char* current = "";
    try {
        for (const fs::path& path : files) {
            current = path.c_str();
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", current, error.what());
        return 1;
    }
    std::printf("%zu files\n", files.size());
    return files.empty() ? 1 : 0;
}
