// Everything that libnolk_model does with the bytes of a model file: check, inspect, load within limits, write again.
#include <nolk_model.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/HostRun.h"
#include "fuzz/Outline.h"
#include "fuzz/target.h"

namespace {

using Bytes = std::vector<unsigned char>;

void expectLine(const std::string& text) { expect(text.find('\n') == std::string::npos, "a message is one line"); }

// True if the file has no errors and its network was built.
bool check(const Bytes& file) {
    const nolk::ModelCheck checked = nolk::checkModel(file.data(), file.size(), kSmall);
    bool isGood = checked.remark.empty();
    for (const nolk::ModelFinding& finding : checked.findings) {
        expectLine(nolk::describe(finding));
        isGood = isGood && finding.severity == nolk::Severity::warning;
    }
    return isGood;
}

// Whether the file can be read to its end.
bool inspect(const Bytes& file, int batch) {
    nolk::InspectionOptions options;
    options.batch = batch;
    options.limits = kSmall;
    try {
        const nolk::ModelInfo info = nolk::inspectModel(file.data(), file.size(), options);
        for (const nolk::ModelOperation& operation : info.operations)
            expect(operation.layer < static_cast<int>(info.layers.size()), "a layer is one of the layers");
        for (const int output : info.outputs)
            expect(output < static_cast<int>(info.operations.size()), "an output is one of the operations");
        return true;
    } catch (const nolk::ModelError& error) {
        expectLine(error.what());
        return false;
    }
}

// A runner whose memory holds that value at first.
nolk::Owned<nolk::Runner> loadInto(float value, const Bytes& file, int batch) {
    setFirstValue(value);
    return nolk::loadModel(file.data(), file.size(), batch, "NolkRaw:num_threads=1", kSmall);
}

// What memory holds before a run must not reach a result: not the values from before loading, nor those of earlier
// runs.
void expectDefinedResults(const Bytes& file, int batch, nolk::Runner& runner, nolk::Runner& other) {
    const Outline outline = outlineOf(file.data(), file.size(), batch);
    HostRun first(outline.inputs, outline.outputs), second(outline.inputs, outline.outputs);
    first.fill(hostileValues, 0.0f);
    expect(first.run(runner), "a network that loads runs");
    second.fill(notNumbers, 1.0f);
    expect(second.run(other), "a network that loads runs");
    second.fill(hostileValues, 2.0f);
    expect(second.run(other), "a network runs again");
    expect(areSame(first.outputs(), second.outputs()), "results depend on the inputs only");
}

// Whether the file was loaded.
bool load(const Bytes& file, int batch) {
    try {
        const nolk::Owned<nolk::Runner> runner = loadInto(0.0f, file, batch), other = loadInto(NAN, file, batch);
        expectDefinedResults(file, batch, *runner, *other);
        return true;
    } catch (const nolk::ModelError& error) {
        expectLine(error.what());
        return false;
    }
}

// The network as the writer stores it in each version: what it writes, it writes again.
Bytes rewritten(Bytes file, const nolk::ModelFileOptions& options) {
    const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter(options);
    const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
    reader->readFromMemory(writer.get(), 1, file.data(), static_cast<int>(file.size()));
    return writer->bytes();
}

void write(const Bytes& file, const nolk::ModelFileOptions& options) {
    try {
        const Bytes once = rewritten(file, options);
        expect(once.empty() || rewritten(once, options) == once, "what was written can be written again");
    } catch (const std::logic_error&) {
        // A value that a file of this version cannot hold.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes file(data, data + size);
    const int ways = size == 0 ? 0 : data[size - 1];  // a byte of the checksum
    try {
        // A fuzzer either looks or loads in an execution, so that there are more executions.
        const bool looks = (ways & 64) != 0;
        if (!kIsFuzzer || looks) {
            nolk::ModelFileOptions options;
            options.version = 1 + ways / 4 % 4;
            options.lossy = options.version == 4 && ways % 2 == 1;
            if (inspect(file, 1 + ways % 3) && outlineOf(file.data(), file.size(), 1).isHarmless) write(file, options);
        }
        if (!kIsFuzzer || !looks) {
            const bool isGood = check(file);
            // A check builds the network but does not run it, so it looks at the limit of memory and, of the steps,
            // only at those that folding takes.
            if (!load(file, 1) && isGood)
                expect(!outlineOf(file.data(), file.size(), 1).isHarmless, "a file without errors can be loaded");
        }
    } catch (const std::bad_alloc&) {
        // An impossible count in the file.
    }
    setFirstValue(0.0f);
    dropMessages();
    return 0;
}
