// Vectors in memory of any alignment. By copies, since compilers differ in what an aligned attribute does to a vector
// type; each copy becomes one move. By reference, since vectors wider than the registers have no fixed way to be
// passed.
#pragma once

#include <cstring>

template <typename Vector>
void loadVector(Vector& v, const float* p) {
    std::memcpy(&v, p, sizeof v);
}

template <typename Vector>
void storeVector(float* p, const Vector& v) {
    std::memcpy(p, &v, sizeof v);
}
