// The exported entry points. This file is compiled for every processor of the platform, so that the host gets a message
// instead of an illegal instruction when the processor cannot run the rest of the library.
#include <nolk.h>

#include "api/create.h"
#include "api/processor.h"
#include "api/reportError.h"

namespace {

bool canRunOnThisProcessor() {
    const char* const problem = processorProblem();
    if (problem) reportError("%s", problem);
    return !problem;
}

}  // namespace

const char* nolk_version() { return "opencv_4.8.0"; }

nolk::ModelReader* nolk_new_model_reader() { return canRunOnThisProcessor() ? createModelReader() : nullptr; }

nolk::RunnerBuilder* nolk_new_runner_builder(const char* implCfg) {
    return canRunOnThisProcessor() ? createRunnerBuilder(implCfg) : nullptr;
}

nolk::Runner* nolk_wrap_batch_runner(nolk::Runner* runner, int batchSize) {
    return canRunOnThisProcessor() ? createBatchRunner(runner, batchSize) : nullptr;
}

nolk::Runner* nolk_new_runner(const char* implCfg, void* data, int size, int batch) {
    return canRunOnThisProcessor() ? createRunner(implCfg, data, size, batch) : nullptr;
}
