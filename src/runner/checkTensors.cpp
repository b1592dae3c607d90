#include "runner/checkTensors.h"

#include <cstdio>

#include "builder/shapes.h"

bool tensorsMatch(const nolk::Tensor* tensors, int count, const std::vector<nolk::TensorShape>& expected) {
    if (!tensors) {
        std::fputs("tensors is null\n", stderr);
        return false;
    }
    const int expectedCount = static_cast<int>(expected.size());
    if (count != expectedCount) {
        std::fprintf(stderr, "tensor count wrong. %d != %d\n", count, expectedCount);
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const nolk::TensorShape& have = tensors[i].shape;
        const nolk::TensorShape& want = expected[static_cast<std::size_t>(i)];
        if (!sameShape(have, want)) {
            std::fprintf(stderr, "tensor shape wrong. (%d, %d, %d, %d)[%d] != (%d, %d, %d, %d)[%d](expected)\n", have.n,
                         have.c, have.h, have.w, have.dims, want.n, want.c, want.h, want.w, want.dims);
            return false;
        }
        if (!tensors[i].data) {
            std::fprintf(stderr, "tensors[%d] is null\n", i);
            return false;
        }
    }
    return true;
}
