// Integer division that is the same on every processor.
#pragma once

// a / b, truncated. A quotient by 0 is 0 and INT_MIN / -1 is INT_MIN: what AArch64 gives, where x86-64 traps. Strides,
// steps and counts of 0 come from files.
inline int quotient(int a, int b) {
    if (b == 0) return 0;
    return b == -1 ? 0 - a : a / b;
}
