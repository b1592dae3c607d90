#include <nolk.h>

#include "builder/RawRunnerBuilder.h"

const char* nolk_version() { return "opencv_4.8.0"; }

nolk::RunnerBuilder* nolk_new_runner_builder(const char* implCfg) { return new RawRunnerBuilder(implCfg); }
