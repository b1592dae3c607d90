#include "api/create.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

#include "api/find_proc.h"
#include "api/reportError.h"
#include "builder/RawRunnerBuilder.h"
#include "model/ModelReaderImpl.h"
#include "runner/BaseBatchRunner.h"
#include "runner/BatchRunner.h"

namespace {

using NewBuilder = nolk::RunnerBuilder* (*)(const char* cfg);
using NewRunner = nolk::Runner* (*)(const char* cfg, void* data, int size, int batch);

// Passes errors in a model file on to the host.
class HostErrors final : public ErrorSink {
public:
    void error(const std::string& text) override { reportError("%s", text.c_str()); }
    void warning(const std::string& text) override { std::fprintf(stderr, "%s\n", text.c_str()); }
};

HostErrors hostErrors;

struct Destroy {
    template <typename Object>
    void operator()(Object* object) const {
        object->destroy();
    }
};

bool isModelFile(const void* data, int size) {
    const auto* bytes = static_cast<const char*>(data);
    return bytes && size > 2 && bytes[0] == 'C' && bytes[1] == 'M';
}

nolk::Runner* readModel(const char* implCfg, void* data, int size, int batch) {
    const std::unique_ptr<nolk::RunnerBuilder, Destroy> builder(createRunnerBuilder(implCfg));
    if (!builder) return nullptr;
    const std::unique_ptr<nolk::ModelReader, Destroy> reader(createModelReader());
    return reader->readFromMemory(builder.get(), batch, data, size);
}

}  // namespace

nolk::ModelReader* createModelReader() { return new ModelReaderImpl(hostErrors); }

nolk::RunnerBuilder* createRunnerBuilder(const char* implCfg) {
    const auto [impl, cfg] = parseImplCfg(implCfg);
    if (impl.empty()) return new RawRunnerBuilder(cfg.c_str());
    const auto newBuilder = reinterpret_cast<NewBuilder>(find_proc(impl.c_str(), "nolk_new_runner_builder_impl"));
    return newBuilder ? newBuilder(cfg.c_str()) : nullptr;
}

nolk::Runner* createBatchRunner(nolk::Runner* runner, int batchSize) {
    try {
        if (!runner || batchSize < 1) throw std::invalid_argument("invalid runner or batch_size");
        if (batchSize == 1) return new BaseBatchRunner(runner, batchSize);
        return new BatchRunner(runner, batchSize);
    } catch (const std::exception& e) {
        reportError("%s", e.what());
        return nullptr;
    }
}

nolk::Runner* createRunner(const char* implCfg, void* data, int size, int batch) {
    if (isModelFile(data, size)) return readModel(implCfg, data, size, batch);
    const auto [impl, cfg] = parseImplCfg(implCfg);
    const auto newRunner = reinterpret_cast<NewRunner>(find_proc(impl.c_str(), "nolk_new_runner"));
    return newRunner ? newRunner(cfg.c_str(), data, size, batch) : nullptr;
}
