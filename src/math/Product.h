// The matrix product, compiled for one instruction set.
#pragma once

struct Product {
    // c = a * b on the calling thread, for a [m, k] and c [m, n] row-major and b [k, n] row-major or, in the second,
    // column-major. c overlaps neither a nor b.
    using Function = void (*)(const float* a, const float* b, float* c, int m, int k, int n);

    const char* name;  // of the instruction set, for example "x86-64-v3"
    Function rowRowRow;
    Function rowColRow;
};
