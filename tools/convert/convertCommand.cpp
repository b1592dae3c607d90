#include "convert/convertCommand.h"

#include <nolk.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <optional>

#include "ProgressBar.h"
#include "convert/arguments.h"
#include "convert/conversion.h"
#include "convert/npy.h"
#include "convert/onnx/text.h"
#include "convert/report.h"
#include "help/usageError.h"
#include "writeText.h"

namespace convert {

namespace {

constexpr int kFailure = 1, kUsage = 2;

// One line, after what went to standard output.
int complain(const std::string& text, int status) {
    std::fflush(stdout);
    std::fprintf(stderr, "nolk-convert: %s\n", text.c_str());
    return status;
}

std::string versionText() {
    return "nolk-convert " + std::to_string(NOLK_VERSION_MAJOR) + "." + std::to_string(NOLK_VERSION_MINOR) + "." +
           std::to_string(NOLK_VERSION_PATCH);
}

// Where lines for the user go: not among the bytes of a file.
std::FILE* lines(const Arguments& a) { return a.out == "-" || a.report == "-" ? stderr : stdout; }

// A file of the user's, besides the model; what() is one line.
struct UnreadableArray : std::runtime_error {
    using std::runtime_error::runtime_error;
};

Array readCheckInput(const std::string& path) {
    try {
        return readNpy(path);
    } catch (const OnnxError& error) {
        throw UnreadableArray(std::string("--check-input ") + error.what());
    }
}

// The arrays by the name of their input: NAME=FILE, or in the inputs' order.
std::map<std::string, Array> checkInputsOf(const Arguments& a, const Conversion& conversion) {
    std::map<std::string, Array> inputs;
    const std::vector<TensorPlace>& places = conversion.inputs;
    std::size_t next = 0;
    for (const std::string& text : a.checkInputs) {
        const std::size_t equals = text.find('=');
        const bool hasName = equals != std::string::npos && conversion.inputDims.count(text.substr(0, equals)) != 0;
        if (!hasName && next >= places.size())
            throw WrongUsage("--check-input " + text + ": the network has only " + std::to_string(places.size()) +
                             (places.size() == 1 ? " input" : " inputs"));
        const std::string name = hasName ? text.substr(0, equals) : places[next++].name;
        if (!inputs.emplace(name, readCheckInput(hasName ? text.substr(equals + 1) : text)).second)
            throw WrongUsage("--check-input " + text + ": the input " + inQuotes(name) + " has an array already");
    }
    for (const TensorPlace& place : places)
        if (!inputs.empty() && inputs.count(place.name) == 0)
            std::fprintf(lines(a), "input %s is checked with random values\n", inQuotes(place.name).c_str());
    return inputs;
}

void printFindings(const Arguments& a, const Conversion& conversion) {
    const std::size_t count = conversion.findings.size();
    complain(a.in + ": " + std::to_string(count) + (count == 1 ? " node" : " nodes") + " cannot be converted:", 0);
    for (const Finding& finding : conversion.findings) std::fprintf(stderr, "  %s\n", describe(finding).c_str());
    if (conversion.unseenNodes != 0)
        std::fprintf(stderr,
                     "  behind them, %d more cannot be judged yet, because shapes of their inputs are unknown\n",
                     conversion.unseenNodes);
    complain(a.out + " is not written", kFailure);
}

CheckResult checked(const Model& model, const ConvertedFile& file, CheckOptions options) {
    ProgressBar bar("checking");
    options.progress = [&bar](double done) { bar.show(done); };
    return check(model, file, options);
}

CheckResult checked(const Model& model, const ConvertOptions& options, const Arguments& a,
                    const Conversion& conversion) {
    CheckOptions checking = checkOptionsFor(model, options, conversion);
    checking.inputs = checkInputsOf(a, conversion);
    // A small file must not take much memory: with the program's own, 1 GiB.
    constexpr std::int64_t kFree = std::int64_t{768} << 20, kForEachByte = 16;
    checking.memoryBytes = kFree + kForEachByte * static_cast<std::int64_t>(conversion.file.bytes.size());
    return checked(model, conversion.file, std::move(checking));
}

// Checks the file. Where samples of a batch that the model fixes turn out to be joined, a file that takes the whole
// batch as one sample replaces it.
CheckResult checkedOrRemade(const Model& model, ConvertOptions options, const Arguments& a, Conversion& conversion) {
    CheckResult result = checked(model, options, a, conversion);
    // Arrays of a user's were meant for the samples of the first file.
    if (result.passed || !conversion.hasFreedBatch || !a.checkInputs.empty()) return result;
    options.keepsBatch = true;
    Conversion whole = convertModel(model, options);
    if (!whole.findings.empty()) return result;
    CheckResult resultOfWhole = checked(model, options, a, whole);
    if (!resultOfWhole.passed) return result;
    conversion = std::move(whole);
    return resultOfWhole;
}

// What --lossy changes is no fault of the conversion: the file without losses is held to the usual tolerance first.
CheckResult checkedLossy(const Model& model, ConvertOptions options, const Arguments& a, Conversion& conversion) {
    ConvertOptions exactOptions = options;
    exactOptions.lossy = false;
    Conversion exact = convertModel(model, exactOptions);
    CheckResult result = checkedOrRemade(model, exactOptions, a, exact);
    if (!result.passed) return result;
    options.keepsBatch = conversion.hasFreedBatch && !exact.hasFreedBatch;
    if (options.keepsBatch) conversion = convertModel(model, options);
    return checked(model, options, a, conversion);
}

CheckResult checkedAsAsked(const Model& model, const ConvertOptions& options, const Arguments& a,
                           Conversion& conversion) {
    return options.lossy ? checkedLossy(model, options, a, conversion) : checkedOrRemade(model, options, a, conversion);
}

bool isGoodCheck(const CheckResult& result, const Arguments& a) {
    for (const OutputDifference& output : result.outputs)
        std::fprintf(lines(a), "output %s: differs by at most %.3g, %.3g of its largest value\n",
                     inQuotes(output.name).c_str(), output.absolute, output.relative);
    if (result.passed) return true;
    complain(a.in + ": " + result.failure, kFailure);
    complain(a.out + " is not written; --no-check would write it as it is", kFailure);
    return false;
}

// The report is written before the file, so that a file is not left behind by a failure.
int convertFile(const Arguments& a) {
    const ConvertOptions options = optionsOf(a);
    Model model = readModel(a.in);
    checkPaths(a, model);
    takeBranches(model, options);
    // A check needs the weights once more.
    Conversion conversion = a.noCheck ? convertModel(std::move(model), options) : convertModel(model, options);
    bool isGood = conversion.findings.empty();
    std::optional<CheckResult> check;
    // NOLINTNEXTLINE(bugprone-use-after-move): without a check the model is not read again.
    if (isGood && !a.noCheck) check = checkedAsAsked(model, options, a, conversion);
    Report report(a.in, a.out, conversion);
    for (const std::string& remark : conversion.remarks) std::fprintf(lines(a), "%s\n", remark.c_str());
    if (!isGood) printFindings(a, conversion);
    if (check) {
        report.setCheck(*check);
        isGood = isGoodCheck(*check, a);
    }
    if (!a.report.empty()) writeText(a.report, report.text());
    if (!isGood) return kFailure;
    const std::vector<unsigned char>& bytes = conversion.file.bytes;
    writeText(a.out, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    std::fprintf(lines(a), "%s: %zu operations, %zu bytes\n", a.out.c_str(), conversion.operations.size(),
                 bytes.size());
    return 0;
}

// For a file that is not even looked at node by node.
int fail(const Arguments& a, const std::string& text) {
    complain(text, kFailure);
    if (!a.report.empty()) writeText(a.report, failureReport(a.in, a.out, text));
    return kFailure;
}

// "--report: 1 required FILE missing" in plain words.
std::string withoutValue(const std::string& text) {
    const std::size_t colon = text.find(": 1 required");
    return colon == std::string::npos ? text : text.substr(0, colon) + ": its value is missing";
}

int parseAndConvert(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Converts an ONNX model to a model file of nolk's.", "nolk-convert");
    addOptions(app, arguments);
    const std::string wrong = usageError(app, argc, argv);
    if (!wrong.empty()) return complain(wrong, kUsage);
    try {
        app.parse(argc, argv);
        checkPaths(arguments);
        return convertFile(arguments);
    } catch (const CLI::RequiredError& error) {
        const bool isFile = !arguments.report.empty();
        return complain(error.what() + (isFile ? "; --report has taken " + arguments.report : std::string()), kUsage);
    } catch (const CLI::ArgumentMismatch& error) {
        return complain(withoutValue(error.what()), kUsage);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : complain(error.what(), kUsage);
    } catch (const WrongUsage& error) {
        return complain(error.what(), kUsage);
    } catch (const UnreadableArray& error) {
        return fail(arguments, error.what());
    } catch (const OnnxError& error) {
        return fail(arguments, arguments.in + ": " + error.what());
    } catch (const std::bad_alloc&) {
        return fail(arguments, arguments.in + ": needs more memory than there is");
    }
}

}  // namespace

int convertCommand(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--version") {
        std::puts(versionText().c_str());
        return 0;
    }
    try {
        return parseAndConvert(argc, argv);
    } catch (const std::exception& error) {
        return complain(error.what(), kFailure);
    }
}

}  // namespace convert
