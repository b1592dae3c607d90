// The rate of multiply-adds that one core reaches when all operands are in registers: the limit of convolutions.
#pragma once

// Measures for some 30 ms, with the widest vectors that this processor has, and returns GFLOP/s, two for a
// multiply-add.
double peakRate();
