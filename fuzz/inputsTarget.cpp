// What the program nolk reads besides models: arrays, images, and its command line. The first byte chooses.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/Outline.h"
#include "fuzz/target.h"
#include "nolk/run/image.h"
#include "nolk/run/npy.h"

// The program's main function, which is compiled under this name.
int nolkMain(int argc, char** argv);

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

// A folder for the files that a command line names; it is the current folder, and removed at the end.
class Folder {
public:
    Folder() {
        std::string name = (fs::temp_directory_path() / "nolk-fuzz-XXXXXX").string();
        expect(mkdtemp(name.data()) != nullptr, "a folder can be made");
        path_ = name;
        fs::current_path(path_);
        const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter();
        nolk::TensorX* output = writer->relu(writer->input({1, 3, 4, 4, 3}));
        writer->build(&output, 1);
        write("net.cm", writer->bytes().data(), writer->bytes().size());
    }

    ~Folder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }

    // The bytes as files with the endings by which the program tells formats apart.
    void place(const std::uint8_t* data, std::size_t size) {
        write("x.cm", data, size);
        for (const char* const name : kLinks) link("x.cm", name);
    }

    // Removes what a command has written.
    void clean() {
        for (const fs::directory_entry& entry : fs::directory_iterator(path_))
            if (entry.path().filename() != "net.cm") fs::remove(entry.path());
    }

private:
    static constexpr const char* kLinks[] = {"x.npy", "x.png", "x.jpg", "x.pgm", "x.bin"};

    static void link(const char* from, const char* to) { fs::create_hard_link(from, to); }
    static void write(const char* name, const std::uint8_t* data, std::size_t size) {
        std::ofstream(name, std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

    fs::path path_;
};

Folder& folder() {
    static Folder instance;
    return instance;
}

// Words of command lines. A byte beyond the table begins a word of its own, up to a line feed.
constexpr const char* kWords[] = {
    "info",    "run",      "check",    "diff",    "bench",   "manual",      "completion", "--help", "--version",
    "-h",      "net.cm",   "x.cm",     "x.npy",   "x.png",   "x.jpg",       "x.pgm",      "x.bin",  "out.npy",
    "--input", "--output", "--batch",  "--scale", "--mean",  "--bgr",       "--threads",  "--json", "--dot",
    "--svg",   "--memory", "--layers", "--sort",  "--trace", "--tolerance", "--rtol",     "1",      "2",
    "3",       "0",        "-1",       "1/255",   "0.5,1,2", "order",       "time",       "-",      "--",
    "nan",     "1e99",     "",         "none.cm", ".",       "--batch=2",   "--layers=1"};

// Keeps a word inside the folder, and numbers small: a network may be small for each sample only.
std::string harmless(const std::string& word) {
    std::string result;
    int digits = 0;
    for (const char c : word) {
        digits = std::isdigit(static_cast<unsigned char>(c)) ? digits + 1 : 0;
        if (digits <= 2 && c != '\0')
            result += c == '/' && !std::isdigit(static_cast<unsigned char>(word[0])) ? '_' : c;
    }
    return result;
}

std::vector<std::string> wordsFrom(const std::uint8_t*& data, std::size_t& size) {
    std::vector<std::string> words = {"nolk"};
    while (size > 0) {
        const std::size_t code = *data++;
        --size;
        if (code == 0) break;
        if (code <= std::size(kWords)) {
            words.emplace_back(kWords[code - 1]);
            continue;
        }
        const std::uint8_t* const end = std::find(data, data + size, '\n');
        words.push_back(harmless({data, end}));
        size -= static_cast<std::size_t>(end - data);
        data = end;
        if (size > 0) ++data, --size;
    }
    return words;
}

// Not those that start another program, load a library, or take a time of the user's choice.
bool mayRun(const std::vector<std::string>& words) {
    return std::none_of(words.begin(), words.end(), [](const std::string& word) {
        return word == "convert" || word.rfind("--impl", 0) == 0 || word.rfind("--runs", 0) == 0 ||
               word.rfind("--warm", 0) == 0 || word.rfind("--sec", 0) == 0;
    });
}

void runCommand(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> words = wordsFrom(data, size);
    if (!mayRun(words) || !outlineOf(data, size, 1).isHarmless) return;
    if (words.size() > 1 && words[1] == "bench") words.insert(words.end(), {"--runs", "1", "--warmup", "0"});
    folder().place(data, size);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const int status = nolkMain(static_cast<int>(words.size()), argv.data());
    expect(status >= 0 && status <= 2, "the exit status is 0, 1 or 2");
    folder().clean();
}

// A reader of a file gives all values or throws.
template <typename Read>
void readFile(const char* name, const std::uint8_t* data, std::size_t size, Read read) {
    folder().place(data, size);
    try {
        read(name);
    } catch (const std::runtime_error& error) {
        expect(std::string(error.what()).rfind(name, 0) == 0, "a message begins with the file's name");
    }
    folder().clean();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int way = *data++ % 4;
    --size;
    try {
        if (way == 0) {
            std::vector<float> values(2 * 3 * 4);
            const nolk::TensorShape shape{1, 2, 3, 4, 3};
            readFile("x.npy", data, size, [&](const char* name) { readNpy(name, shape, values.data()); });
        } else if (way == 1 || way == 2) {
            const int channels = way == 1 ? 1 : 3;
            std::vector<float> values(static_cast<std::size_t>(channels * 4 * 4));
            const nolk::TensorShape shape{1, channels, 4, 4, 3};
            readFile("x.png", data, size, [&](const char* name) { readImage(name, shape, {}, values.data()); });
        } else {
            runCommand(data, size);
        }
    } catch (const std::bad_alloc&) {
        // An impossible count in a model file.
    }
    dropMessages();
    return 0;
}
