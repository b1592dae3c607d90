#include "convert/check/check.h"

#include <nolk_model.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <set>
#include <utility>

#include "convert/check/samples.h"
#include "convert/evaluate/evaluateGraph.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

// What one batch was given and what the ONNX graph makes of it.
struct Reference {
    std::map<std::string, Array> inputs;
    std::vector<std::map<std::string, Array>> results;  // of the whole batch, or of each sample alone

    Samples samplesOf(const TensorPlace& place, int batch) const {
        Samples samples;
        const bool isAlone = results.size() > 1 || batch == 1;
        for (int sample = 0; sample < batch; ++sample) {
            const std::map<std::string, Array>& from = results[isAlone ? static_cast<std::size_t>(sample) : 0];
            appendSample(place, from.at(place.name), isAlone ? 1 : batch, isAlone ? 0 : sample, samples);
        }
        return samples;
    }
};

class Check {
public:
    Check(const Model& model, const ConvertedFile& converted, const CheckOptions& options)
        : model_(model), converted_(converted), options_(options) {}

    CheckResult run() {
        CheckResult result;
        for (const TensorPlace& place : converted_.outputs) result.outputs.push_back({place.name, 0, 0});
        constexpr int kLast = 2;
        result.failure = excess(kLast);
        if (!result.failure.empty()) return result;
        for (int batch = 1; batch <= kLast; ++batch) {
            begin_ = batch == 1 ? 0 : 1.0 / 3;
            share_ = batch / 3.0;
            const Reference reference = evaluate(batch, {});
            if (!compare(reference, batch, result)) return result;
        }
        result.passed = true;
        return result;
    }

private:
    // Why a check would take too long or too much memory; a small file can ask for both. Empty when it does not.
    std::string excess(int batch) const {
        nolk::InspectionOptions inspection;
        inspection.batch = batch;
        inspection.depth = nolk::InspectionDepth::records;
        const nolk::ModelInfo info = nolk::inspectModel(converted_.bytes.data(), converted_.bytes.size(), inspection);
        const nolk::ModelCost& cost = info.cost;
        const double ends = static_cast<double>(bytesOfEnds(info)) + bytesOfOtherInputs(batch);
        if (static_cast<double>(cost.memoryBytes()) + ends > static_cast<double>(options_.memoryBytes))
            return "checking needs more than " + std::to_string(options_.memoryBytes >> 20) +
                   " MiB of memory: leave the check out by --no-check";
        if (cost.steps > options_.steps)
            return "checking needs " + std::to_string(cost.steps) + " multiply-adds, more than " +
                   std::to_string(options_.steps) + ": leave the check out by --no-check";
        return "";
    }

    // Inputs and outputs outside the network: the graph's, and twice those that are compared.
    static std::int64_t bytesOfEnds(const nolk::ModelInfo& info) {
        std::int64_t bytes = 0;
        for (const std::vector<int>* places : {&info.inputs, &info.outputs})
            for (const int place : *places) {
                const nolk::TensorShape& shape = info.operations[static_cast<std::size_t>(place)].output;
                bytes += 3 * static_cast<std::int64_t>(sizeof(float)) * shape.n * shape.c * shape.h * shape.w;
            }
        return bytes;
    }

    // Inputs that the graph has, but not the file, because no output depends on their values.
    double bytesOfOtherInputs(int batch) const {
        std::set<std::string> known;
        for (const TensorPlace& place : converted_.inputs) known.insert(place.name);
        double bytes = 0;
        for (const TensorPlace& place : options_.graphInputs) {
            if (known.count(place.name) != 0) continue;
            double count = batch;
            for (const std::int64_t extent : options_.inputDims.at(place.name)) count *= static_cast<double>(extent);
            bytes += 3 * sizeof(std::int64_t) * count;
        }
        return bytes;
    }

    Reference evaluate(int batch, const std::set<std::string>& wanted) {
        Reference reference;
        std::mt19937 random(static_cast<std::mt19937::result_type>(batch));
        for (const TensorPlace& place : options_.graphInputs) {
            const Dims& dims = options_.inputDims.at(place.name);
            const auto given = options_.inputs.find(place.name);
            reference.inputs[place.name] = given != options_.inputs.end()
                                               ? usersArray(place, dims, given->second, batch, typeOf(place.name))
                                               : randomArray(place, dims, batch, typeOf(place.name), random);
        }
        GraphOptions graph;
        graph.wanted = wanted;
        graph.memoryBytes = options_.memoryBytes;
        if (!options_.evaluateSamplesAlone) {
            graph.progress = [&](std::size_t done, std::size_t all) { report(done, all, 0, 1); };
            reference.results.push_back(evaluateGraph(model_, reference.inputs, graph));
            return reference;
        }
        for (int sample = 0; sample < batch; ++sample) {
            graph.progress = [&](std::size_t done, std::size_t all) { report(done, all, sample, batch); };
            std::map<std::string, Array> inputs;
            for (const TensorPlace& place : options_.graphInputs)
                inputs[place.name] = sampleAlone(place, options_.inputDims.at(place.name),
                                                 reference.inputs.at(place.name), batch, sample);
            reference.results.push_back(evaluateGraph(model_, inputs, graph));
        }
        return reference;
    }

    int typeOf(const std::string& name) const {
        for (const ModelInput& input : inputsOf(model_))
            if (input.name == name) return input.type;
        return onnx::TensorProto::FLOAT;
    }

    void report(std::size_t done, std::size_t all, int part, int parts) const {
        const double ofPart = static_cast<double>(done) / static_cast<double>(std::max<std::size_t>(all, 1));
        if (options_.progress) options_.progress(begin_ + share_ * (part + ofPart) / parts);
    }

    // The outputs of a converted file for the inputs of the reference.
    static std::vector<Samples> runFile(const ConvertedFile& file, const Reference& reference, int batch) {
        nolk::InspectionOptions inspection;
        inspection.batch = batch;
        inspection.depth = nolk::InspectionDepth::records;
        const nolk::ModelInfo info = nolk::inspectModel(file.bytes.data(), file.bytes.size(), inspection);
        const nolk::Owned<nolk::Runner> runner = nolk::loadModel(file.bytes.data(), file.bytes.size(), batch);
        const auto tensorsOf = [&](const std::vector<int>& places, std::vector<Samples>& values) {
            std::vector<nolk::Tensor> tensors;
            tensors.reserve(places.size() + 1);  // an array of none is no null pointer
            for (std::size_t i = 0; i < places.size(); ++i) {
                const nolk::TensorShape& shape = info.operations[static_cast<std::size_t>(places[i])].output;
                values[i].resize(static_cast<std::size_t>(shape.n) * static_cast<std::size_t>(shape.c) *
                                 static_cast<std::size_t>(shape.h) * static_cast<std::size_t>(shape.w));
                tensors.push_back({shape, values[i].data()});
            }
            return tensors;
        };
        std::vector<Samples> inputs(info.inputs.size()), outputs(info.outputs.size());
        for (std::size_t i = 0; i < std::min(inputs.size(), file.inputs.size()); ++i)
            for (int sample = 0; sample < batch; ++sample)
                appendSample(file.inputs[i], reference.inputs.at(file.inputs[i].name), batch, sample, inputs[i]);
        std::vector<nolk::Tensor> in = tensorsOf(info.inputs, inputs), out = tensorsOf(info.outputs, outputs);
        if (!runner->run(in.data(), static_cast<int>(in.size()), out.data(), static_cast<int>(out.size())))
            throw OnnxError("the converted file does not run");
        return outputs;
    }

    // Whether all outputs are near enough; else the result says what departs.
    bool compare(const Reference& reference, int batch, CheckResult& result) {
        const std::vector<Samples> made = runFile(converted_, reference, batch);
        bool passed = made.size() == converted_.outputs.size();
        if (!passed) result.failure = "the converted file has another number of outputs";
        for (std::size_t i = 0; passed && i < made.size(); ++i) {
            const OutputDifference difference = differenceOf(converted_.outputs[i], made[i], reference, batch);
            OutputDifference& largest = result.outputs[i];
            largest.absolute = std::max(largest.absolute, difference.absolute);
            largest.relative = std::max(largest.relative, difference.relative);
            if (difference.relative <= options_.tolerance) continue;
            result.failure = firstDeparture(batch, describe(difference, batch));
            if (options_.inputs.empty())
                result.failure +=
                    "; random inputs may be none that the network is made for: give others by --check-input FILE.npy";
            return false;
        }
        return passed;
    }

    static OutputDifference differenceOf(const TensorPlace& place, const Samples& made, const Reference& reference,
                                         int batch) {
        const Samples wanted = reference.samplesOf(place, batch);
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        constexpr double kAlmostInfinite = 0.999 * double{std::numeric_limits<float>::max()};
        OutputDifference difference{place.name, 0, 0};
        if (made.size() != wanted.size()) return {place.name, kInfinity, kInfinity};
        double largest = 0;
        for (std::size_t i = 0; i < made.size(); ++i) {
            const double value = made[i], target = wanted[i];
            if (std::isfinite(target)) largest = std::max(largest, std::abs(target));
            // A converted file has the largest finite constants in the place of infinite ones.
            const bool isBeyond = std::isinf(target) && value * std::copysign(1.0, target) > kAlmostInfinite;
            const bool isSame = value == target || (std::isnan(value) && std::isnan(target)) || isBeyond;
            const double distance = isSame ? 0 : std::abs(value - target);
            difference.absolute = std::max(difference.absolute, std::isnan(distance) ? kInfinity : distance);
        }
        // Values that should all be 0 but for rounding have no scale of their own.
        constexpr double kSmallestScale = 1e-6;
        difference.relative = difference.absolute / std::max(largest, kSmallestScale);
        return difference;
    }

    static std::string describe(const OutputDifference& difference, int batch) {
        char text[64];
        std::snprintf(text, sizeof text, "%.3g, %.3g of its largest value", difference.absolute, difference.relative);
        return inQuotes(difference.name) + ", by " + text + ", for batch " + std::to_string(batch);
    }

    // The first tensor in the order of the graph that departs.
    std::string firstDeparture(int batch, const std::string& output) {
        std::string failure = "the results depart from those of the ONNX graph at the output " + output;
        if (!options_.withAllTensors) return failure;
        const ConvertedFile all = options_.withAllTensors();
        if (all.bytes.empty()) return failure;
        std::set<std::string> names;
        for (const TensorPlace& place : all.outputs) names.insert(place.name);
        const Reference reference = evaluate(batch, names);
        const std::vector<Samples> made = runFile(all, reference, batch);
        std::map<std::string, std::size_t> places;
        for (std::size_t i = 0; i < std::min(made.size(), all.outputs.size()); ++i)
            places.emplace(all.outputs[i].name, i);
        for (const onnx::NodeProto* node : orderedNodes(model_))
            for (const std::string& name : node->output()) {
                const auto place = places.find(name);
                if (place == places.end()) continue;
                const auto difference = differenceOf(all.outputs[place->second], made[place->second], reference, batch);
                if (difference.relative > options_.tolerance)
                    return failure + "; the first tensor that departs is " + describe(difference, batch) +
                           ", made by " + describeNode(*node);
            }
        return failure;
    }

    const Model& model_;
    const ConvertedFile& converted_;
    const CheckOptions& options_;
    double begin_ = 0, share_ = 1;  // of the progress
};

}  // namespace

CheckResult check(const Model& model, const ConvertedFile& converted, const CheckOptions& options) {
    try {
        return Check(model, converted, options).run();
    } catch (const nolk::ModelError& error) {
        CheckResult result;
        result.failure = std::string("the converted file cannot be used: ") + error.what();
        return result;
    }
}

}  // namespace convert
