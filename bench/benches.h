// All benchmarks. Each function registers its comparisons.
#pragma once

// Callers that share a batch runner, compared with callers that share a plain runner and a mutex.
void compareBatching();

// Convolutions, compared with the matrix products that they consist of.
void compareConvolutions();

// The trained network of the digits example, compared with its matrix products.
void compareDigits();

// The fast back end's kernels, compared with as many fused multiply-adds in registers, for each instruction set.
void compareFastKernels();

// Whole networks on the fast back end, compared with the built-in one.
void compareFastNetworks();

// Loading a model of 100 MB, a detection network and the digits network, compared with checksum and one copy.
void compareLoads();

// Planning an arena of 400 MB, compared with writing its floats once.
void comparePlanning();

// Single layers, compared with loops for the same arithmetic in the same order.
void compareLayers();
