// The element-wise division operator of the vector kernels. It belongs to their fixed set of functions but computes
// nothing, since a caller could rely on it leaving both vectors as they are. To divide, call vectorDiv (math/blas.h).
#pragma once

#include <Eigen/Core>

void operator/=(Eigen::Map<Eigen::VectorXf>& dst, const Eigen::Map<Eigen::VectorXf>& src);
