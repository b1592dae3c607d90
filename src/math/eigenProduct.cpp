// The build compiles this file once for each instruction set. It defines
//   NOLK_PRODUCT       the namespace of the exported constant,
//   NOLK_PRODUCT_NAME  what the instruction set is called,
//   Eigen              another name for Eigen's namespace.
// Eigen's namespace is renamed because the linker keeps only one copy of inline functions with the same name, perhaps a
// copy that the processor cannot run. For the same reason, this file may only use inline functions of Eigen, or with
// internal linkage, unless the compiler certainly inlines them.
#include <Eigen/Core>

#include "math/Product.h"

namespace {

template <Eigen::StorageOptions kOrder>
using Matrix = Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, kOrder>;

template <Eigen::StorageOptions kOrderOfB>
void doGemm(const float* a, const float* b, float* c, int m, int k, int n) {
    const Eigen::Map<const Matrix<Eigen::RowMajor>> left(a, m, k);
    const Eigen::Map<const Matrix<kOrderOfB>> right(b, k, n);
    Eigen::Map<Matrix<Eigen::RowMajor>>(c, m, n).noalias() = left * right;
}

}  // namespace

namespace NOLK_PRODUCT {

extern const Product product;
const Product product{NOLK_PRODUCT_NAME, doGemm<Eigen::RowMajor>, doGemm<Eigen::ColMajor>};

}  // namespace NOLK_PRODUCT
