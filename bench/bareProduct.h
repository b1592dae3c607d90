// The plain matrix product that nolk's own products are compared with.
#pragma once

#include <Eigen/Core>

// c = a * b for a [m, k] and c [m, n] row-major, b [k, n] column-major, one thread.
inline void bareProduct(const float* a, const float* b, float* c, int m, int k, int n) {
    using RowMajor = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    Eigen::Map<RowMajor>(c, m, n).noalias() =
        Eigen::Map<const RowMajor>(a, m, k) * Eigen::Map<const Eigen::MatrixXf>(b, k, n);
}
