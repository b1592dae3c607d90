#include "fast/kernels/levelKernels.h"

namespace NOLK_FAST_LEVEL {

const FastKernels kernels{
    NOLK_FAST_LEVEL_NAME, product,       depthwise, step,      pool,    reducePlane,
    normalizePlane,       resizeRow,     toBlocks,  toPlain,   softmax, reduce,
    normalizeL2,          normalizeRows, lstmCell,  transpose,
};

}  // namespace NOLK_FAST_LEVEL
