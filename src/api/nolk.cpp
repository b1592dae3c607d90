#include <nolk.h>

#include "builder/RawRunnerBuilder.h"
#include "model/ModelReaderImpl.h"

const char* nolk_version() { return "opencv_4.8.0"; }

nolk::ModelReader* nolk_new_model_reader() { return new ModelReaderImpl; }

nolk::RunnerBuilder* nolk_new_runner_builder(const char* implCfg) { return new RawRunnerBuilder(implCfg); }
