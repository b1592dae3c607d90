#include "convert/convertCommand.h"
#include "ProgressBar.h"

#include <nolk.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>

#include "convert/conversion.h"
#include "convert/npy.h"
#include "convert/onnx/text.h"
#include "convert/report.h"
#include "writeText.h"

namespace convert {

namespace {

constexpr int kFailure = 1, kUsage = 2;

struct Arguments {
    std::string in;
    std::string out;
    std::vector<std::string> shapes;
    std::vector<std::string> checkInputs;
    std::string report;
    int version = 4;
    bool lossy = false;
    bool noCheck = false;
};

// Wrong usage; what() is one line.
struct WrongUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void addOptions(CLI::App& app, Arguments& a) {
    app.set_help_flag("-h,--help", "print this help");
    app.add_option("IN.onnx", a.in, "the ONNX file")->required();
    app.add_option("OUT.cm", a.out, "the model file to write")->required();
    app.add_option("--shape", a.shapes, "extents of an input that the ONNX file leaves free, as NAME=1,3,320,320")
        ->allow_extra_args(false);
    app.add_option("--version", a.version, "version of the model file, 1 to 4")->check(CLI::Range(1, 4));
    app.add_flag("--lossy", a.lossy, "replace weights by the nearest of 256 values where that is smaller");
    app.add_option("--report", a.report, "write what was done to a JSON file");
    app.add_option("--check-input", a.checkInputs, "npy files to compare results on, one for each input, or NAME=FILE")
        ->allow_extra_args(false);
    app.add_flag("--no-check", a.noCheck, "do not compare the results with those of the ONNX graph");
}

// NAME=1,3,320,320
std::pair<std::string, Dims> shapeOf(const std::string& text) {
    const std::size_t equals = text.rfind('=');
    const WrongUsage wrong("--shape " + text + ": expected NAME=1,3,320,320");
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

ConvertOptions optionsOf(const Arguments& a) {
    ConvertOptions options;
    options.version = a.version;
    options.lossy = a.lossy;
    for (const std::string& text : a.shapes) options.shapes.insert(shapeOf(text));
    return options;
}

std::map<std::string, Array> checkInputsOf(const Arguments& a, const Conversion& conversion) {
    std::map<std::string, Array> inputs;
    std::size_t next = 0;
    for (const std::string& text : a.checkInputs) {
        const std::size_t equals = text.find('=');
        if (equals != std::string::npos && conversion.inputDims.count(text.substr(0, equals)) != 0) {
            inputs[text.substr(0, equals)] = readNpy(text.substr(equals + 1));
            continue;
        }
        if (next >= conversion.file.inputs.size())
            throw WrongUsage("--check-input " + text + ": the network has " +
                             std::to_string(conversion.file.inputs.size()) + " inputs only");
        inputs[conversion.file.inputs[next++].name] = readNpy(text);
    }
    return inputs;
}

void printFindings(const Arguments& a, const Conversion& conversion) {
    const std::size_t count = conversion.findings.size();
    std::fprintf(stderr, "nolk-convert: %s: %zu node%s cannot be converted:\n", a.in.c_str(), count,
                 count == 1 ? "" : "s");
    for (const Finding& finding : conversion.findings) std::fprintf(stderr, "  %s\n", describe(finding).c_str());
    std::fprintf(stderr, "nolk-convert: %s is not written\n", a.out.c_str());
}

void printDifferences(const CheckResult& result) {
    for (const OutputDifference& output : result.outputs)
        std::printf("output %s: differs by at most %.3g, %.3g of its largest value\n", inQuotes(output.name).c_str(),
                    output.absolute, output.relative);
}

bool isChecked(const Model& model, const ConvertOptions& options, const Arguments& a, const Conversion& conversion,
               Report& report) {
    if (a.noCheck) return true;
    CheckOptions checking = checkOptionsFor(model, options, conversion);
    checking.inputs = checkInputsOf(a, conversion);
    // A small file must not take much memory.
    constexpr std::int64_t kFree = std::int64_t{3} << 29, kForEachByte = 16;
    checking.memoryBytes = kFree + kForEachByte * static_cast<std::int64_t>(conversion.file.bytes.size());
    ProgressBar bar("checking");
    checking.progress = [&bar](double done) { bar.show(done); };
    const CheckResult result = check(model, conversion.file, checking);
    report.setCheck(result);
    printDifferences(result);
    if (result.passed) return true;
    std::fprintf(stderr, "nolk-convert: %s: %s\nnolk-convert: %s is not written\n", a.in.c_str(),
                 result.failure.c_str(), a.out.c_str());
    return false;
}

int convertFile(const Arguments& a) {
    const ConvertOptions options = optionsOf(a);
    Model model = readModel(a.in);
    takeBranches(model, options);
    // A check needs the weights once more.
    const Conversion conversion = a.noCheck ? convertModel(std::move(model), options) : convertModel(model, options);
    Report report(a.in, a.out, conversion);
    for (const std::string& remark : conversion.remarks) std::printf("%s\n", remark.c_str());
    bool isGood = conversion.findings.empty();
    if (!isGood) printFindings(a, conversion);
    // NOLINTNEXTLINE(bugprone-use-after-move): without a check the model is not read again.
    isGood = isGood && isChecked(model, options, a, conversion, report);
    if (!a.report.empty()) writeText(a.report, report.text());
    if (!isGood) return kFailure;
    const std::vector<unsigned char>& bytes = conversion.file.bytes;
    writeText(a.out, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    std::printf("%s: %zu operations, %zu bytes\n", a.out.c_str(), conversion.operations.size(), bytes.size());
    return 0;
}

int complain(const std::string& text, int status) {
    std::fprintf(stderr, "nolk-convert: %s\n", text.c_str());
    return status;
}

}  // namespace

int convertCommand(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Converts an ONNX model to a model file of nolk's.", "nolk-convert");
    addOptions(app, arguments);
    try {
        app.parse(argc, argv);
        return convertFile(arguments);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : complain(error.what(), kUsage);
    } catch (const WrongUsage& error) {
        return complain(error.what(), kUsage);
    } catch (const OnnxError& error) {
        return complain(arguments.in + ": " + error.what(), kFailure);
    } catch (const std::bad_alloc&) {
        return complain(arguments.in + ": needs more memory than there is", kFailure);
    } catch (const std::exception& error) {
        return complain(error.what(), kFailure);
    }
}

}  // namespace convert
