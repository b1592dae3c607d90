// Integer division that is the same on every processor.
#pragma once

// a / b, truncated. Division by 0 gives 0 and INT_MIN / -1 gives INT_MIN, as on AArch64; x86-64 would trap. Model files
// may contain strides, steps and counts of 0.
inline int quotient(int a, int b) {
    if (b == 0) return 0;
    return b == -1 ? 0 - a : a / b;
}
