// The documents leave nothing out that the program has.
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iterator>
#include <regex>

#include "convert/arguments.h"
#include "convert/lower/operators.h"
#include "help/commandLine.h"

namespace {

std::string read(const std::string& path) {
    std::ifstream file(NOLK_SOURCE_FOLDER "/" + path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Documents, ListEveryOperator) {
    const std::string text = read("docs/converting.md");
    for (const std::string& type : convert::loweredOperators())
        EXPECT_TRUE(std::regex_search(text, std::regex("\\b" + type + "\\b"))) << type;
}

TEST(Documents, DescribeEveryOption) {
    CLI::App app("", "nolk-convert");
    convert::Arguments arguments;
    addOptions(app, arguments);
    const std::string text = read("docs/converting.md");
    const std::string page = std::regex_replace(read("tools/convert/nolk-convert.1"), std::regex("\\\\-"), "-");
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();  // "--shape", "IN.onnx"
        EXPECT_NE(page.find(name), std::string::npos) << name;
        EXPECT_TRUE(name == "--help" || text.find(name) != std::string::npos) << name;
    }
}

}  // namespace
