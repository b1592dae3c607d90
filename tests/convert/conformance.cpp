// Runs cases of ONNX's operators through the evaluator and through conversion, and says for each what came out. Not a
// test by itself: the cases are written by writeConformanceCases.py.
//   conformance FOLDER [PART OF A NAME]
// The exit status is 1 when a case came out wrong.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "convert/check/check.h"
#include "convert/conversion.h"
#include "convert/evaluate/evaluateGraph.h"

namespace {

namespace fs = std::filesystem;
using convert::Array;

Array readTensor(const fs::path& path, std::string& name) {
    onnx::TensorProto tensor;
    std::ifstream file(path, std::ios::binary);
    if (!tensor.ParseFromIstream(&file)) throw convert::OnnxError("no tensor in " + path.string());
    name = tensor.name();
    return convert::arrayOf(tensor, {});
}

std::map<std::string, Array> readTensors(const fs::path& folder, const std::string& kind) {
    std::map<std::string, Array> arrays;
    for (int i = 0; fs::exists(folder / (kind + "_" + std::to_string(i) + ".pb")); ++i) {
        std::string name;
        const Array array = readTensor(folder / (kind + "_" + std::to_string(i) + ".pb"), name);
        arrays.emplace(name, array);
    }
    return arrays;
}

bool isClose(double value, double wanted, double scale) {
    if (std::isnan(wanted)) return std::isnan(value);
    if (std::isinf(wanted)) return value == wanted;
    return std::abs(value - wanted) <= 1e-4 * scale + 1e-7;
}

// Empty when the arrays are equal but for rounding.
std::string differenceOf(const Array& made, const Array& wanted) {
    if (made.dims() != wanted.dims())
        return "has the shape " + convert::describeDims(made.dims()) + " instead of " +
               convert::describeDims(wanted.dims());
    if (made.isFloat() != wanted.isFloat()) return "is of " + convert::typeName(made.type());
    double scale = 0;
    if (wanted.isFloat())
        for (const float value : wanted.floats())
            if (std::isfinite(value)) scale = std::max<double>(scale, std::abs(value));
    if (wanted.type() == onnx::TensorProto::FLOAT16) scale *= 10;
    for (std::int64_t i = 0; i < wanted.count(); ++i) {
        const auto at = static_cast<std::size_t>(i);
        const bool same = wanted.isFloat() ? isClose(made.floats()[at], wanted.floats()[at], scale)
                                           : made.ints()[at] == wanted.ints()[at];
        const double value = made.isFloat() ? made.floats()[at] : static_cast<double>(made.ints()[at]);
        const double target = made.isFloat() ? wanted.floats()[at] : static_cast<double>(wanted.ints()[at]);
        if (!same)
            return "element " + std::to_string(i) + " is " + std::to_string(value) + " instead of " +
                   std::to_string(target);
    }
    return "";
}

// Which inputs of a case are constants of the network: an operator may need some to be.
enum class Constants { none, allButFirst, all };  // the first that has floats

void storeInputs(convert::Model& model, std::map<std::string, Array>& inputs, Constants constants) {
    if (constants == Constants::none) return;
    bool hasInput = constants == Constants::all;
    for (const convert::ModelInput& input : convert::inputsOf(model)) {
        const bool stays = !hasInput && convert::isFloatType(input.type);
        hasInput = hasInput || stays;
        if (stays) continue;
        model.initializers.emplace(input.name, inputs.at(input.name));
        inputs.erase(input.name);
    }
}

std::string evaluatorResult(const fs::path& folder, Constants constants) {
    try {
        convert::Model model = convert::readModel(folder / "model.onnx");
        auto inputs = readTensors(folder, "input");
        storeInputs(model, inputs, constants);
        std::map<std::string, convert::Dims> dims;
        for (const auto& [name, array] : inputs) dims[name] = array.dims();
        const auto made = convert::evaluateGraph(model, inputs);
        const auto shapes = convert::evaluateGraphShapes(model, dims);
        for (const auto& [name, wanted] : readTensors(folder, "output")) {
            const std::string difference = differenceOf(made.at(name), wanted);
            if (!difference.empty()) return "WRONG " + name + " " + difference;
            if (shapes.at(name).dims != wanted.dims())
                return "WRONG " + name + " should have the shape " + convert::describeDims(wanted.dims());
        }
        return "pass";
    } catch (const convert::UnknownOperator& error) {
        return std::string("unknown: ") + error.what();
    } catch (const convert::OnnxError& error) {
        return std::string("refused: ") + error.what();
    }
}

std::string conversionResult(const fs::path& folder, Constants constants) {
    try {
        convert::Model model = convert::readModel(folder / "model.onnx");
        auto inputs = readTensors(folder, "input");
        storeInputs(model, inputs, constants);
        const convert::Conversion made = convert::convertModel(model, {});
        if (!made.findings.empty()) return "refused: " + made.findings[0].type + ": " + made.findings[0].why;
        convert::CheckOptions options = convert::checkOptionsFor(model, {}, made);
        options.inputs = inputs;
        const convert::CheckResult result = convert::check(model, made.file, options);
        return result.passed ? "pass" : "WRONG " + result.failure;
    } catch (const convert::OnnxError& error) {
        return std::string("refused: ") + error.what();
    } catch (const std::exception& error) {
        return std::string("WRONG ") + error.what();
    }
}

// The first way of storing inputs that is not refused.
template <typename Result>
std::string bestOf(const fs::path& folder, Result&& resultOf) {
    std::string first;
    for (const Constants constants : {Constants::none, Constants::allButFirst}) {
        const std::string result = resultOf(folder, constants);
        if (result.rfind("refused", 0) != 0) return result;
        if (first.empty()) first = result;
    }
    const std::string last = resultOf(folder, Constants::all);
    return last == "pass" ? last : first;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(argv[1]))
        if (argc < 3 || entry.path().filename().string().find(argv[2]) != std::string::npos)
            folders.push_back(entry.path());
    std::sort(folders.begin(), folders.end());
    std::map<std::string, int> counts;
    const auto show = [&](const fs::path& folder, const char* what, const std::string& result) {
        std::printf("%-60s %-9s %s\n", folder.filename().c_str(), what, result.c_str());
        ++counts[std::string(what) + " " + result.substr(0, 5)];
    };
    for (const fs::path& folder : folders) {
        show(folder, "evaluate", bestOf(folder, evaluatorResult));
        show(folder, "convert", bestOf(folder, conversionResult));
        std::fflush(stdout);
    }
    bool isWrong = false;
    for (const auto& [result, count] : counts) {
        std::printf("%s %d\n", result.c_str(), count);
        isWrong = isWrong || result.find("WRONG") != std::string::npos;
    }
    return isWrong ? 1 : 0;
}
