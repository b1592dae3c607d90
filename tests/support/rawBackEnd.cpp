#include "builder/RawRunnerBuilder.h"
#include "support/backEnd.h"

nolk::RunnerBuilder* newBackEndBuilder(const char* cfg) { return new RawRunnerBuilder(cfg); }

void forEachInstructionSet(const std::function<void()>& f) { f(); }

float backEndTolerance() { return 0.0f; }
