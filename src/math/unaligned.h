// Loads and stores vectors at addresses of any alignment. It uses memcpy, which compiles to one move, because compilers
// differ in what an aligned attribute does to a vector type. Vectors are passed by reference, because there is no fixed
// convention for passing vectors that are wider than the registers.
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
