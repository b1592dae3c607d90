#include "fast/kernels/levelKernels.h"

namespace NOLK_FAST_LEVEL {

const FastKernels kernels{
    NOLK_FAST_LEVEL_NAME,
    product,
    depthwise,
    nullptr,  // step
    nullptr,  // pool
    nullptr,  // reducePlane
    nullptr,  // normalizePlane
    nullptr,  // resizeRow
    nullptr,  // toBlocks
    nullptr,  // toPlain
    nullptr,  // softmax
    nullptr,  // reduce
    nullptr,  // normalizeL2
    nullptr,  // normalizeRows
    nullptr,  // lstmCell
    nullptr,  // transpose
};

}  // namespace NOLK_FAST_LEVEL
