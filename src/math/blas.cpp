#include "math/blas.h"

#include <Eigen/Core>
#include <algorithm>
#include <thread>
#include <vector>

#include "math/chooseProduct.h"
#include "math/copySparsely.h"
#include "math/mapDivision.h"
#include "math/quotient.h"

namespace {

auto array(float* data, int n) { return Eigen::Map<Eigen::VectorXf>(data, std::max(n, 0)).array(); }
auto array(const float* data, int n) { return Eigen::Map<const Eigen::VectorXf>(data, std::max(n, 0)).array(); }

}  // namespace

void vectorAdd(int n, float* dst, const float* src) { array(dst, n) += array(src, n); }
void vectorSub(int n, float* dst, const float* src) { array(dst, n) -= array(src, n); }
void vectorMul(int n, float* dst, const float* src) { array(dst, n) *= array(src, n); }
void vectorDiv(int n, float* dst, const float* src) { array(dst, n) /= array(src, n); }

void vectorAdd(int n, float* dst, const float* a, const float* b) { array(dst, n) = array(a, n) + array(b, n); }
void vectorSub(int n, float* dst, const float* a, const float* b) { array(dst, n) = array(a, n) - array(b, n); }
void vectorMul(int n, float* dst, const float* a, const float* b) { array(dst, n) = array(a, n) * array(b, n); }
void vectorDiv(int n, float* dst, const float* a, const float* b) { array(dst, n) = array(a, n) / array(b, n); }

void vectorAdd(int n, float* dst, float s) { array(dst, n) += s; }
void vectorSub(int n, float* dst, float s) { array(dst, n) -= s; }
void vectorMul(int n, float* dst, float s) { array(dst, n) *= s; }
void vectorDiv(int n, float* dst, float s) { array(dst, n) /= s; }

void vectorAdd(int n, float* dst, const float* src, float s) { array(dst, n) = array(src, n) + s; }
void vectorSub(int n, float* dst, const float* src, float s) { array(dst, n) = array(src, n) - s; }
void vectorMul(int n, float* dst, const float* src, float s) { array(dst, n) = array(src, n) * s; }
void vectorDiv(int n, float* dst, const float* src, float s) { array(dst, n) = array(src, n) / s; }

void operator/=(Eigen::Map<Eigen::VectorXf>&, const Eigen::Map<Eigen::VectorXf>&) {}

// Plain loops, because this comparison defines the results for NaN and signed zeros. Compilers vectorise it.
void vectorMax(int n, float* dst, const float* src) {
    for (int i = 0; i < n; ++i) dst[i] = dst[i] < src[i] ? src[i] : dst[i];
}

void vectorMin(int n, float* dst, const float* src) {
    for (int i = 0; i < n; ++i) dst[i] = src[i] < dst[i] ? src[i] : dst[i];
}

void copyFloats(const float* src, float*& dst, int n) {
    dst = nullptr;
    if (!src || n <= 0) return;
    dst = new float[static_cast<std::size_t>(n)];
    copySparsely(src, dst, static_cast<std::size_t>(n));
}

namespace {

// Joins its threads when it is destroyed, even by an exception, in the order in which they were started.
class ThreadGroup {
public:
    ThreadGroup() = default;
    ThreadGroup(const ThreadGroup&) = delete;
    ThreadGroup& operator=(const ThreadGroup&) = delete;
    ~ThreadGroup() {
        for (std::thread& t : threads_) t.join();
    }

    template <typename Work>
    void start(Work work) {
        threads_.emplace_back(work);
    }

private:
    std::vector<std::thread> threads_;
};

// Splits the rows into bands of m / numThreads rows. The calling thread takes the last band, which may have fewer rows.
template <Eigen::StorageOptions kOrderOfB>
void doGemmMt(const float* a, const float* b, float* c, int m, int k, int n, int numThreads, int gemmThresh) {
    const Product::Function doGemm = kOrderOfB == Eigen::RowMajor ? product().rowRowRow : product().rowColRow;
    const int share = quotient(m, numThreads);
    // More threads than rows would give bands of no rows.
    const bool whole = numThreads < 2 || m == 1 || gemmThresh > m * k * n || share < 1 || m <= share;
    if (whole) return doGemm(a, b, c, m, k, n);

    ThreadGroup workers;
    int offset = 0;
    do {
        const float* bandOfA = a + static_cast<std::ptrdiff_t>(offset) * k;
        float* bandOfC = c + static_cast<std::ptrdiff_t>(offset) * n;
        workers.start([=] { doGemm(bandOfA, b, bandOfC, share, k, n); });
        offset += share;
    } while (m - offset > share);
    doGemm(a + static_cast<std::ptrdiff_t>(offset) * k, b, c + static_cast<std::ptrdiff_t>(offset) * n, m - offset, k,
           n);
}

}  // namespace

void gemmMajRowRowRow(const float* a, const float* b, float* c, int m, int k, int n, int numThreads, int gemmThresh) {
    doGemmMt<Eigen::RowMajor>(a, b, c, m, k, n, numThreads, gemmThresh);
}

void gemmMajRowColRow(const float* a, const float* b, float* c, int m, int k, int n, int numThreads, int gemmThresh) {
    doGemmMt<Eigen::ColMajor>(a, b, c, m, k, n, numThreads, gemmThresh);
}
