// An element-wise division operator that does nothing: callers may rely on it leaving both vectors unchanged, so it
// must not start to divide. To divide, call vectorDiv (math/blas.h).
#pragma once

#include <Eigen/Core>

void operator/=(Eigen::Map<Eigen::VectorXf>& dst, const Eigen::Map<Eigen::VectorXf>& src);
