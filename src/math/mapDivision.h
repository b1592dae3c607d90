// An operator that does nothing: a /= b leaves both vectors as they are. Nothing calls it; it stays because its name
// belongs to the kernels. To divide element by element, call vectorDiv (math/blas.h), which needs no Eigen types.
#pragma once

#include <Eigen/Core>

void operator/=(Eigen::Map<Eigen::VectorXf>& dst, const Eigen::Map<Eigen::VectorXf>& src);
