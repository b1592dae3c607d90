// Arithmetic over float arrays: element-wise kernels and the matrix product.
//   vectorAdd(n, dst, a, b);                                     // dst[i] = a[i] + b[i]
//   gemmMajRowColRow(a, b, c, m, k, n, 1, 0);                    // c = a * b on the calling thread
// Every kernel does one IEEE operation per element, so results depend neither on alignment nor on the processor. It
// does nothing if n <= 0. A source may be dst itself, but must not overlap it otherwise. Thread-safe.
#pragma once

// dst[i] = dst[i] op src[i]
void vectorAdd(int n, float* dst, const float* src);
void vectorSub(int n, float* dst, const float* src);
void vectorMul(int n, float* dst, const float* src);
void vectorDiv(int n, float* dst, const float* src);

// dst[i] = a[i] op b[i]
void vectorAdd(int n, float* dst, const float* a, const float* b);
void vectorSub(int n, float* dst, const float* a, const float* b);
void vectorMul(int n, float* dst, const float* a, const float* b);
void vectorDiv(int n, float* dst, const float* a, const float* b);

// dst[i] = dst[i] op s. Division divides, it does not multiply by the reciprocal.
void vectorAdd(int n, float* dst, float s);
void vectorSub(int n, float* dst, float s);
void vectorMul(int n, float* dst, float s);
void vectorDiv(int n, float* dst, float s);

// dst[i] = src[i] op s
void vectorAdd(int n, float* dst, const float* src, float s);
void vectorSub(int n, float* dst, const float* src, float s);
void vectorMul(int n, float* dst, const float* src, float s);
void vectorDiv(int n, float* dst, const float* src, float s);

// dst[i] = src[i] if that is larger, or smaller, than dst[i]. Otherwise dst[i] stays, so a NaN in dst stays and a NaN
// in src is ignored.
void vectorMax(int n, float* dst, const float* src);
void vectorMin(int n, float* dst, const float* src);

// A copy of n floats in dst, for the caller to delete[]; null for a null source or n <= 0.
void copyFloats(const float* src, float*& dst, int n);

// c = a * b, for a [m, k], c [m, n] row-major and b [k, n] row-major (RowRowRow) or column-major (RowColRow: each
// column's k values contiguous). If there are at least gemmThresh multiply-adds (counted in 32 bits, wrapping), the
// rows are split over up to numThreads + 1 threads, which have ended when the function returns. Throws
// std::system_error when a thread cannot be started.
void gemmMajRowRowRow(const float* a, const float* b, float* c, int m, int k, int n, int numThreads, int gemmThresh);
void gemmMajRowColRow(const float* a, const float* b, float* c, int m, int k, int n, int numThreads, int gemmThresh);
