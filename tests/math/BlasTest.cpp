#include "math/blas.h"

#include <gtest/gtest.h>

#include <memory>

#include "math/chooseProduct.h"
#include "math/mapDivision.h"
#include "math/quotient.h"
#include "support/ReferenceBuilder.h"
#include "support/values.h"

namespace {

struct Kernel {
    void (*inPlace)(int, float*, const float*);
    void (*arrays)(int, float*, const float*, const float*);
    void (*inPlaceScalar)(int, float*, float);
    void (*scalar)(int, float*, const float*, float);
    float (*one)(float, float);
};

const Kernel kKernels[] = {
    {vectorAdd, vectorAdd, vectorAdd, vectorAdd, [](float a, float b) { return a + b; }},
    {vectorSub, vectorSub, vectorSub, vectorSub, [](float a, float b) { return a - b; }},
    {vectorMul, vectorMul, vectorMul, vectorMul, [](float a, float b) { return a * b; }},
    {vectorDiv, vectorDiv, vectorDiv, vectorDiv, [](float a, float b) { return a / b; }},
    {vectorMax, nullptr, nullptr, nullptr, [](float a, float b) { return a < b ? b : a; }},
    {vectorMin, nullptr, nullptr, nullptr, [](float a, float b) { return b < a ? b : a; }},
};

// Every length up to a few vectors, at every offset from an aligned address; what lies around stays as it is.
TEST(VectorKernels, EqualOneOperationPerElementAtAnyAlignment) {
    for (const Kernel& k : kKernels)
        for (int n = -1; n <= 21; ++n)
            for (std::size_t offset = 0; offset < 5; ++offset) {
                const std::vector<float> a = valuesWithSpecials(41, 40), b = valuesWithSpecials(42, 40);
                std::vector<float> both = a, scaled = a, dst[5] = {a, a, a, a, a};
                for (std::size_t i = offset; static_cast<int>(i - offset) < n; ++i) {
                    both[i] = k.one(a[i], b[i]);
                    scaled[i] = k.one(a[i], b[0]);
                }
                const auto at = [offset](auto& values) { return values.data() + offset; };
                k.inPlace(n, at(dst[0]), at(b));
                expectSameBits(dst[0], both);
                if (!k.arrays) continue;
                k.arrays(n, at(dst[1]), at(a), at(b));
                k.arrays(n, at(dst[2]), at(dst[2]), at(b));
                k.inPlaceScalar(n, at(dst[3]), b[0]);
                k.scalar(n, at(dst[4]), at(a), b[0]);
                for (const int i : {1, 2}) expectSameBits(dst[i], both);
                for (const int i : {3, 4}) expectSameBits(dst[i], scaled);
            }
}

TEST(CopyFloats, CopiesOrGivesNull) {
    float source[] = {1, 2, 3}, *copy = nullptr;
    copyFloats(source, copy, 3);
    EXPECT_EQ(std::unique_ptr<float[]>(copy)[2], 3);
    for (float* const from : {source, static_cast<float*>(nullptr)}) {
        copyFloats(from, copy, from ? 0 : 3);
        EXPECT_EQ(copy, nullptr);
    }
}

class Gemm : public testing::Test {
protected:
    ~Gemm() override { forceProduct(nullptr); }
};

TEST_F(Gemm, EqualsTheSumsHoweverItIsSplitWhateverTheInstructionSet) {
    Values values(42);
    const struct {
        int m, k, n, threads, threshold;
    } cases[] = {
        {1, 1, 1, 1, 0},   {3, 5, 7, 1, 0},  {17, 33, 19, 1, 0}, {10, 8, 9, 3, 1},   {9, 8, 9, 3, 1},
        {10, 8, 9, 4, 1},  {2, 8, 9, 5, 1},  {1, 8, 9, 4, 1},    {10, 8, 9, 3, 720}, {10, 8, 9, 3, 721},
        {10, 0, 4, 3, -1}, {0, 3, 4, 3, -1}, {4, 3, 0, 3, -1},   {64, 30, 50, 7, 1}, {5, 2, 3, -2, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.m << " x " << c.k << " x " << c.n << " on " << c.threads);
        const auto a = values.reals(static_cast<std::size_t>(c.m) * c.k),
                   b = values.reals(static_cast<std::size_t>(c.k) * c.n);
        ReferenceBuilder reference;
        auto* const x = reference.input({1, 1, c.m, c.k, 3}, a);
        auto* const y = reference.input({1, 1, c.k, c.n, 3}, b);
        const std::vector<float>& expected = reference.values(reference.matMul(x, y));
        const std::vector<float>& transposed = reference.values(reference.transpose(y, {{0, 1, 3, 2}}));
        for (const Product* supported : supportedProducts()) {
            SCOPED_TRACE(supported->name);
            forceProduct(supported);
            std::vector<float> rows(expected.size(), -9.0f), columns = rows;
            gemmMajRowRowRow(a.data(), b.data(), rows.data(), c.m, c.k, c.n, c.threads, c.threshold);
            gemmMajRowColRow(a.data(), transposed.data(), columns.data(), c.m, c.k, c.n, c.threads, c.threshold);
            expectClose(rows, expected, 1e-5f);  // sums of at most 33 products, in an order of their own
            expectClose(columns, expected, 1e-5f);
        }
    }
}

TEST(MapDivision, LeavesBothVectorsAsTheyAre) {
    std::vector<float> a = {8.0f, 0.0f}, b = {2.0f, 0.0f};
    Eigen::Map<Eigen::VectorXf> left(a.data(), 2), right(b.data(), 2);
    left /= right;
    expectSameBits(a, {8.0f, 0.0f});
    expectSameBits(b, {2.0f, 0.0f});
}

TEST(Quotient, IsTheSameOnEveryProcessor) {
    EXPECT_EQ(quotient(7, 2), 3);
    EXPECT_EQ(quotient(-7, 2), -3);
    EXPECT_EQ(quotient(5, 0), 0);
    EXPECT_EQ(quotient(INT32_MIN, -1), INT32_MIN);
}

}  // namespace
