#include "convert/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "help/HelpFormatter.h"
#include "writeText.h"

namespace convert {

namespace {

namespace fs = std::filesystem;

bool areSame(const std::string& a, const std::string& b) {
    std::error_code error;
    if (fs::exists(a, error) && fs::exists(b, error)) return fs::equivalent(a, b, error);
    return fs::absolute(a, error).lexically_normal() == fs::absolute(b, error).lexically_normal();
}

void checkIsNotWritten(const Arguments& a, const std::string& read, const std::string& what) {
    const auto checkIsOther = [&](const std::string& written) {
        if (!written.empty() && areSame(read, written))
            throw WrongUsage(written + ": would overwrite what is read as " + what + ": give it another name");
    };
    checkIsOther(a.out);
    checkIsOther(a.report);
}

// NAME=1,3,320,320; a name may contain "=".
std::pair<std::string, Dims> shapeOf(const std::string& text) {
    const std::size_t equals = text.rfind('=');
    const WrongUsage wrong("--shape " + text + ": expected NAME=1,3,320,320, with whole numbers from 1");
    if (equals == std::string::npos || equals == 0) throw wrong;
    Dims dims;
    std::size_t begin = equals + 1;
    while (begin <= text.size()) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string number = text.substr(begin, end - begin);
        const bool isNumber = !number.empty() && number.size() < 10 &&
                              std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
        if (!isNumber || std::stoll(number) < 1) throw wrong;
        dims.push_back(std::stoll(number));
        begin = end + 1;
    }
    return {text.substr(0, equals), dims};
}

// A value that is forgotten takes the next word for it.
CLI::Validator versionValidator() {
    const auto check = [](const std::string& text) {
        const bool isVersion = text.size() == 1 && text[0] >= '1' && text[0] <= '4';
        return isVersion ? std::string() : text + " is no version of a model file: expected 1, 2, 3 or 4";
    };
    return {check, ""};
}

}  // namespace

void addOptions(CLI::App& app, Arguments& a) {
    app.formatter(std::make_shared<HelpFormatter>());
    constexpr std::size_t kColumn = 24;
    app.get_formatter()->column_width(kColumn);
    app.set_help_flag("-h,--help", "print this help");
    app.add_option("IN.onnx", a.in, "the ONNX file")->required()->type_name("FILE");
    app.add_option("OUT.cm", a.out, "the model file to write")->required()->type_name("FILE");
    app.add_option("--shape", a.shapes,
                   "shape of an input whose extents the ONNX file\nleaves free, as NAME=1,3,320,320")
        ->type_name("SHAPE");
    app.add_option("--version", a.version,
                   "version of the model file; 4 if not given. Alone,\n--version prints the version of the program")
        ->check(versionValidator())
        ->type_name("1..4");
    app.add_flag("--lossy", a.lossy, "replace weights by the nearest of 256 values where\nthat is smaller");
    app.add_option("--report", a.report, "write what was done to a JSON file")->type_name("FILE");
    app.add_option("--check-input", a.checkInputs,
                   "compare results on .npy files instead of random\nnumbers: one for each input, or NAME=FILE")
        ->type_name("FILE");
    app.add_flag("--no-check", a.noCheck, "do not compare results with those of the ONNX graph");
    app.footer(
        "Example: nolk-convert net.onnx net.cm --shape image=1,3,320,320\n\n"
        "The exit status is 0 when the file is written, 1 when it is not, and 2 for wrong\n"
        "usage. What cannot be converted is listed on standard error, one line for each\n"
        "node.");
}

void checkPaths(const Arguments& a) {
    if (a.out.empty()) throw WrongUsage("OUT.cm is an empty name");
    if (areSame(a.in, a.out)) throw WrongUsage(a.out + ": is the ONNX file itself: give OUT.cm another name");
    if (!a.report.empty() && (areSame(a.report, a.in) || areSame(a.report, a.out)))
        throw WrongUsage("--report " + a.report + ": is one of the other two files: give it another name");
    for (const std::string& text : a.checkInputs) {
        const std::size_t equals = text.find('=');
        checkIsNotWritten(a, text, text);
        if (equals != std::string::npos) checkIsNotWritten(a, text.substr(equals + 1), text);
    }
    constexpr int kIndexedFloats = 4;  // the version of the model file that has them
    if (a.lossy && a.version < kIndexedFloats) throw WrongUsage("--lossy needs version 4 of the model file");
    if (a.noCheck && !a.checkInputs.empty()) throw WrongUsage("--check-input has no use with --no-check");
    checkWritable(a.out);
    if (!a.report.empty()) checkWritable(a.report);
}

void checkPaths(const Arguments& a, const Model& model) {
    for (const fs::path& file : model.externalFiles) checkIsNotWritten(a, file.string(), "the model's weights");
}

ConvertOptions optionsOf(const Arguments& a) {
    ConvertOptions options;
    options.version = a.version;
    options.lossy = a.lossy;
    for (const std::string& text : a.shapes)
        if (!options.shapes.insert(shapeOf(text)).second)
            throw WrongUsage("--shape " + text + ": this input has a shape already");
    return options;
}

}  // namespace convert
