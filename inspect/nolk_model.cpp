// The exported functions. Like the entry points of nolk.h, this file is compiled for every processor of the platform,
// so that the host gets an exception instead of an illegal instruction when the processor cannot run the rest.
#include <nolk_model.h>

#include "api/processor.h"
#include "inspect/entryPoints.h"

namespace {

void requireSupportedProcessor() {
    if (const char* const problem = processorProblem()) throw nolk::ModelError(problem);
}

}  // namespace

nolk::ModelError::~ModelError() = default;
nolk::LimitExceeded::~LimitExceeded() = default;

nolk::ModelInfo nolk::inspectModel(const void* data, std::size_t size, const InspectionOptions& options) {
    requireSupportedProcessor();
    return inspectFile(data, size, options);
}

nolk::ModelCheck nolk::checkModel(const void* data, std::size_t size, const ModelLimits& limits) {
    requireSupportedProcessor();
    return checkFile(data, size, limits);
}

nolk::Owned<nolk::Runner> nolk::loadModel(const void* data, std::size_t size, int batch, const char* implementation,
                                          const ModelLimits& limits) {
    requireSupportedProcessor();
    return Owned<Runner>(loadFile(data, size, batch, implementation, limits));
}

nolk::Owned<nolk::ModelWriter> nolk::newModelWriter(const ModelFileOptions& options) {
    requireSupportedProcessor();
    return Owned<ModelWriter>(createModelWriter(options));
}
