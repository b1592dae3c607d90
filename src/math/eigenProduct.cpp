// The build compiles this file once for each instruction set. It defines
//   NOLK_PRODUCT       the namespace of what is exported,
//   NOLK_PRODUCT_NAME  what the instruction set is called,
//   Eigen              another name for Eigen's namespace.
// The last because the linker keeps inline code of one name once, maybe in a form that the processor cannot run. For
// the same reason nothing here may come out of line that is neither Eigen's nor of internal linkage.
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
