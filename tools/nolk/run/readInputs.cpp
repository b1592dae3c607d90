#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <stdexcept>

#include "inspect/counts.h"
#include "inspect/format.h"
#include "nolk/commonOptions.h"
#include "nolk/model/InputFile.h"
#include "nolk/run/InputOptions.h"
#include "nolk/run/npy.h"

namespace {

void readFloats(const std::string& path, const nolk::TensorShape& expected, float* values) {
    InputFile file(path);
    const std::int64_t bytes = elementsOf(expected) * 4;
    if (file.left() != bytes)
        file.fail(std::to_string(file.left()) + " bytes, expected " + std::to_string(bytes) + " for the floats of " +
                  shapeText(expected));
    file.read(values, bytes);
}

std::string endingOf(const std::string& path) {
    std::string ending = std::filesystem::path(path).extension().string();
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

bool isOfImage(const std::string& ending) {
    const char* const endings[] = {".png", ".jpg", ".jpeg", ".pgm", ".ppm", ".pnm"};
    return std::find(std::begin(endings), std::end(endings), ending) != std::end(endings);
}

void readTensor(const std::string& path, const nolk::TensorShape& expected, const PixelRule& pixels, float* values) {
    const std::string ending = endingOf(path);
    if (ending == ".npy") return readNpy(path, expected, values);
    if (!isOfImage(ending)) return readFloats(path, expected, values);
    if (expected.n != 1)
        throw std::runtime_error(path + ": one image, expected " + std::to_string(expected.n) +
                                 ": give a file for each sample");
    readImage(path, expected, pixels, values);
}

// With the names that the model gives its inputs.
std::string expectedFiles(const Network& network, std::size_t samples) {
    std::string text = std::to_string(network.inputs.size());
    if (samples > network.inputs.size()) text += " or " + std::to_string(samples);
    for (std::size_t i = 0; i < network.inputs.size(); ++i)
        text += (i == 0 ? " for " : ", ") + nameText(network.info.inputNames, i) + shapeText(network.inputs[i]);
    return text;
}

// Reads each sample from its own file. Advances `file` behind the last file that it has read.
void readSamples(const std::string*& file, HostTensor& tensor, const PixelRule& pixels) {
    nolk::TensorShape sample = tensor.shape;
    sample.n = 1;
    float* values = tensor.values.data();
    for (int n = 0; n < tensor.shape.n; ++n, values += elementsOf(sample)) readTensor(*file++, sample, pixels, values);
}

}  // namespace

std::vector<HostTensor> readInputs(const Network& network, const InputOptions& options) {
    const std::vector<nolk::TensorShape>& shapes = network.inputs;
    const std::size_t files = options.inputs.size();
    const std::size_t samples = std::accumulate(
        shapes.begin(), shapes.end(), std::size_t{0},
        [](std::size_t sum, const nolk::TensorShape& s) { return sum + static_cast<std::size_t>(std::max(s.n, 0)); });
    if (files == 0 && !shapes.empty())
        throw UsageError(options.model + ": no --input, expected files: " + expectedFiles(network, samples));
    if (files != shapes.size() && files != samples)
        throw std::runtime_error(options.model + ": " + counted(static_cast<std::int64_t>(files), "input file") +
                                 ", expected " + expectedFiles(network, samples));
    std::vector<HostTensor> tensors = hostTensors(shapes);
    const std::string* file = options.inputs.data();
    for (std::size_t i = 0; i < tensors.size(); ++i) {
        HostTensor& t = tensors[i];
        try {
            if (files == shapes.size())
                readTensor(*file++, t.shape, options.pixels, t.values.data());
            else
                readSamples(file, t, options.pixels);
        } catch (const std::runtime_error& error) {
            const std::string name = nameText(network.info.inputNames, i);
            if (name.empty()) throw;
            throw std::runtime_error(error.what() + (", for the input " + name.substr(0, name.size() - 1)));
        }
    }
    return tensors;
}
