// Whole networks on the fast back end and on the built-in one, each with one thread and with two.
#include <nolk_model.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "DetectionNetwork.h"
#include "benches.h"
#include "builder/shapes.h"
#include "compare.h"
#include "fast/FastRunnerBuilder.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A network from a file's bytes, with random inputs and all outputs in one vector.
class LoadedNetwork {
public:
    LoadedNetwork(nolk::RunnerBuilder* builder, Bytes file, int batch) {
        nolk::InspectionOptions options;
        options.batch = batch;
        options.depth = nolk::InspectionDepth::records;
        const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size(), options);
        const nolk::Owned<nolk::RunnerBuilder> owned(builder);
        const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
        runner_.reset(reader->readFromMemory(builder, batch, file.data(), static_cast<int>(file.size())));
        if (!runner_) std::exit(1);
        in_ = tensorsOf(info, info.inputs, inputs_);
        out_ = tensorsOf(info, info.outputs, outputs_);
    }

    void run() {
        if (!runner_->run(in_.data(), static_cast<int>(in_.size()), out_.data(), static_cast<int>(out_.size())))
            std::exit(1);
    }

    const std::vector<float>& outputs() const { return outputs_; }

private:
    static std::vector<nolk::Tensor> tensorsOf(const nolk::ModelInfo& info, const std::vector<int>& operations,
                                               std::vector<float>& floats) {
        std::vector<nolk::Tensor> tensors;
        std::size_t count = 0;
        for (const int operation : operations) {
            tensors.push_back({info.operations[static_cast<std::size_t>(operation)].output, nullptr});
            count += static_cast<std::size_t>(elementCount(tensors.back().shape));
        }
        floats = randomFloats(count);
        float* data = floats.data();
        for (nolk::Tensor& tensor : tensors) {
            tensor.data = data;
            data += elementCount(tensor.shape);
        }
        return tensors;
    }

    nolk::Owned<nolk::Runner> runner_;
    std::vector<float> inputs_, outputs_;
    std::vector<nolk::Tensor> in_, out_;
};

void compareBackEnds(const std::string& name, const Bytes& file, int batch) {
    for (const char* threads : {"1", "2"}) {
        const std::string settings = std::string("num_threads=") + threads;
        const auto fast = std::make_shared<LoadedNetwork>(new FastRunnerBuilder(settings.c_str()), file, batch);
        const auto builtIn = std::make_shared<LoadedNetwork>(new RawRunnerBuilder(settings.c_str()), file, batch);
        compare(name + ", " + threads + (*threads == '1' ? " thread" : " threads") + ", NolkFast / NolkRaw",
                {[fast] { fast->run(); }, &fast->outputs()}, {[builtIn] { builtIn->run(); }, &builtIn->outputs()},
                1e-4f, batch);
    }
}

}  // namespace

void compareFastNetworks() {
    std::ifstream file(DIGITS_MODEL, std::ios::binary);
    const Bytes digits{std::istreambuf_iterator<char>(file), {}};
    for (const int batch : {1, 16}) compareBackEnds("digits network, batch " + std::to_string(batch), digits, batch);
    compareBackEnds("detection network", detectionNetwork(), 1);
}
