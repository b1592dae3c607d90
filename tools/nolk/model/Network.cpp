#include "nolk/model/Network.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <stdexcept>
#include <string_view>

#include "nolk/model/InputFile.h"
#include "nolk/onnx.h"
#include "nolk/output.h"

namespace {

// Removes all messages from the library's queue, and returns them as the end of a line.
std::string queuedMessages() {
    std::string text;
    char message[256];
    for (nolk_pop_error_message(message, sizeof message); *message; nolk_pop_error_message(message, sizeof message))
        text += std::string(text.empty() ? ": " : "; ") + message;
    return text;
}

std::vector<nolk::TensorShape> shapesOf(const nolk::ModelInfo& info, const std::vector<int>& places) {
    std::vector<nolk::TensorShape> shapes;
    for (const int place : places) shapes.push_back(info.operations[static_cast<std::size_t>(place)].output);
    return shapes;
}

[[noreturn]] void failOfSettings(const ImplementationOptions& implementation, const char* why) {
    throw std::runtime_error("the implementation " + implementation.name() + " refuses its settings: " + why);
}

nolk::Owned<nolk::Runner> newRunner(const std::vector<unsigned char>& bytes, int batch,
                                    const ImplementationOptions& implementation) {
    try {
        return nolk::loadModel(bytes.data(), bytes.size(), batch, implementation.text().c_str());
    } catch (const std::invalid_argument& e) {
        failOfSettings(implementation, e.what());
    } catch (const std::out_of_range& e) {
        failOfSettings(implementation, e.what());
    }
}

}  // namespace

std::vector<unsigned char> readModel(const std::string& path) {
    InputFile file(path);
    if (file.left() > INT_MAX) file.fail("larger than 2 GiB, so it is no model file");
    std::vector<unsigned char> bytes(static_cast<std::size_t>(file.left()));
    file.read(bytes.data(), file.left());
    const std::string_view begin(reinterpret_cast<const char*>(bytes.data()), std::min(bytes.size(), kOnnxBeginBytes));
    if (looksLikeOnnx(path, begin)) file.fail(kOnnxAdvice);
    return bytes;
}

std::string nameText(const std::vector<std::string>& names, std::size_t i) {
    return i < names.size() ? "\"" + printable(names[i]) + "\" " : "";
}

Network loadNetwork(const std::string& path, int batch, const ImplementationOptions& implementation) {
    const std::vector<unsigned char> bytes = readModel(path);
    Network network;
    try {
        // First, because both need memory of the file's size for a moment, and loading keeps the weights.
        network.info = nolk::inspectModel(bytes.data(), bytes.size(), {batch, nolk::InspectionDepth::records, {}});
        const auto start = std::chrono::steady_clock::now();
        network.runner = newRunner(bytes, batch, implementation);
        network.loadSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    } catch (const nolk::ModelError& e) {
        throw std::runtime_error(path + ": " + e.what() + queuedMessages());
    }
    network.inputs = shapesOf(network.info, network.info.inputs);
    network.outputs = shapesOf(network.info, network.info.outputs);
    return network;
}
