// Vectors in memory of any alignment. By copies, since compilers differ in what an aligned attribute does to a vector
// type; each copy becomes one move.
#pragma once

#include <cstring>

template <typename Vector>
Vector loadVector(const float* p) {
    Vector v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <typename Vector>
void storeVector(float* p, Vector v) {
    std::memcpy(p, &v, sizeof v);
}
