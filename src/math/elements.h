// Loops over the elements of arrays in a form that compilers turn into vector code, also when the arrays are the same.
#pragma once

// out[i] = f(in[i]) for i from 0. out may be in, but must not overlap it otherwise.
template <typename Function>
void mapElements(int n, float* out, const float* in, Function f) {
    if (in == out)
        for (int i = 0; i < n; ++i) out[i] = f(out[i]);
    else
        for (int i = 0; i < n; ++i) out[i] = f(in[i]);
}

// out[i] = f(a[i], b[i]) for i from 0. out may be a or b.
template <typename Function>
void mapElements(int n, float* out, const float* a, const float* b, Function f) {
    if (a == out)
        for (int i = 0; i < n; ++i) out[i] = f(out[i], b[i]);
    else
        for (int i = 0; i < n; ++i) out[i] = f(a[i], b[i]);
}
