// Linear interpolation along an array, between two neighbouring elements.
#pragma once

// out[i] = weights[2 * i] * in[at[i]] + weights[2 * i + 1] * in[at[i] + 1], products rounded, for i below n.
// out must not overlap the other arrays.
void interpolate(int n, float* out, const float* in, const int* at, const float* weights);
