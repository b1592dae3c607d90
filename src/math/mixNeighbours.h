// Interpolation along an array: every result mixes two neighbours.
#pragma once

// out[i] = weights[2 * i] * in[at[i]] + weights[2 * i + 1] * in[at[i] + 1], products rounded, for i below n.
// out must not overlap the rest.
void mixNeighbours(int n, float* out, const float* in, const int* at, const float* weights);
