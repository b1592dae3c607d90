// The back end that tests of networks run on. A program links rawBackEnd.cpp or fastBackEnd.cpp, so that one set of
// tests checks both.
//   nolk::RunnerBuilder* builder = newBackEndBuilder("num_threads=3, gemm_thresh=0");
#pragma once

#include <nolk.h>

#include <functional>

// cfg: settings of the built-in back end, or null. The fast back end has other ones and only uses threads then.
nolk::RunnerBuilder* newBackEndBuilder(const char* cfg);

// Calls f once for each instruction set that the back end can be made to use.
void forEachInstructionSet(const std::function<void()>& f);

// How far results may be from those of plain loops in a fixed order, as in expectClose; 0 for the same bits.
float backEndTolerance();
