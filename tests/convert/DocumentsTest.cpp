// The documents leave nothing out that the program has.
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <string>

#include "convert/arguments.h"
#include "convert/lower/operators.h"
#include "help/commandLine.h"

namespace {

std::string read(const std::string& path) {
    std::ifstream file(NOLK_SOURCE_FOLDER "/" + path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

bool isWordCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

bool hasWord(const std::string& text, const std::string& word) {
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const std::size_t end = at + word.size();
        if ((at == 0 || !isWordCharacter(text[at - 1])) && (end == text.size() || !isWordCharacter(text[end])))
            return true;
    }
    return false;
}

TEST(Documents, ListEveryOperator) {
    const std::string text = read("docs/converting.md");
    for (const std::string& type : convert::loweredOperators()) EXPECT_TRUE(hasWord(text, type)) << type;
}

TEST(Documents, DescribeEveryOption) {
    CLI::App app("", "nolk-convert");
    convert::Arguments arguments;
    addOptions(app, arguments);
    const std::string text = read("docs/converting.md");
    std::string page = read("tools/convert/nolk-convert.1");
    page.erase(std::remove(page.begin(), page.end(), '\\'), page.end());  // man pages write "\\-" for "-"
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();  // "--shape", "IN.onnx"
        EXPECT_NE(page.find(name), std::string::npos) << name;
        EXPECT_TRUE(name == "--help" || text.find(name) != std::string::npos) << name;
    }
}

}  // namespace
