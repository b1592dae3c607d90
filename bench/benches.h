// What there is to measure; each function registers its comparisons.
#pragma once

// Callers that share one batch runner, beside the same callers of a runner behind a mutex.
void compareBatching();

// Convolutions beside the matrix products that they consist of.
void compareConvolutions();

// The trained network of the digits example beside its matrix products.
void compareDigits();

// Loading of a model of 100 MB, and of the digits network, beside checksum and copies.
void compareLoads();

// Single layers beside loops for the same arithmetic in the same order.
void compareLayers();
