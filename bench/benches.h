// What there is to measure; each function registers its comparisons.
#pragma once

// Callers that share one batch runner, beside the same callers of a runner behind a mutex.
void compareBatching();

// Convolutions beside the matrix products that they consist of.
void compareConvolutions();

// The trained network of the digits example beside its matrix products.
void compareDigits();

// Loading of a model of 100 MB, of a detection network and of the digits network, beside checksum and one copy.
void compareLoads();

// Planning of an arena of 400 MB, beside writing its floats once.
void comparePlanning();

// Single layers beside loops for the same arithmetic in the same order.
void compareLayers();
