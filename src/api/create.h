// Creates the objects that the entry points of nolk.h return; nolk.h says what each function returns and throws.
// Call these functions only if processorProblem() is null: they use all instructions that the build was made for.
#pragma once

#include <nolk.h>

nolk::ModelReader* createModelReader();
nolk::RunnerBuilder* createRunnerBuilder(const char* implCfg);
nolk::Runner* createBatchRunner(nolk::Runner* runner, int batchSize);
nolk::Runner* createRunner(const char* implCfg, void* data, int size, int batch);
