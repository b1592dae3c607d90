// The rates of multiply-adds that one core reaches: the limits of convolutions.
#pragma once

struct PeakRates {
    double registers;   // all operands in registers: a limit that no convolution reaches, since it has to load them
    double firstCache;  // operands loaded as a convolution does, all from the first cache; many processors clock lower
};

// Measures for so many seconds, with the widest vectors that this processor has, and returns GFLOP/s, two for a
// multiply-add. They are means, not the best moments, which a processor does not keep up.
PeakRates peakRates(double seconds);
