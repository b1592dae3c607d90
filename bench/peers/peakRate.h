// The rate of multiply-adds that one core reaches when all operands are in registers: the limit of convolutions.
#pragma once

// Measures for so many seconds, with the widest vectors that this processor has, and returns GFLOP/s, two for a
// multiply-add. It is the mean, not the best moment, which a processor does not keep up.
double peakRate(double seconds);
