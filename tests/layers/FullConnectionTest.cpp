#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(FullConnection, EqualsTheSums) {
    const struct {
        const char* claim;
        Shape in;
        int groups, out, inPerGroup;
        bool bias, shared;
    } cases[] = {
        {"plain", {2, 8, 1, 1, 1}, 1, 4, 8, true, true},
        {"without bias", {3, 5, 1, 1, 3}, 1, 7, 5, false, true},
        {"groups use the first group's weights", {2, 8, 1, 1, 1}, 2, 3, 4, true, true},
        {"also when every group has its own", {2, 8, 1, 1, 1}, 2, 3, 4, true, false},
        {"only the first values of planes take part", {1, 4, 2, 2, 3}, 1, 3, 4, true, true},
        {"fewer channels than weights", {2, 5, 1, 1, 1}, 1, 3, 6, true, true},
        {"no samples", {0, 8, 1, 1, 1}, 1, 4, 8, true, true},
        {"no inputs leave the bias", {1, 0, 1, 1, 1}, 1, 3, 4, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.claim);
        const auto record = [&](Recording& r) {
            return r->fullConnect(r.x[0], r.weights(c.groups, c.out, c.inPerGroup, 1, 1, c.bias, c.shared));
        };
        // The matrix product sums in its own order; sums have at most 8 products.
        expectReference({c.in}, record, 1e-6f, "num_threads=3, gemm_thresh=0");
    }
}

TEST(FullConnection, WeightsThatDoNotFitAreRefused) {
    const auto record = [](Recording& r) { return r->fullConnect(r.x[0], r.weights(1, 3, 4, 1, 1, true)); };
    expectRefused({{1, 5, 1, 1, 1}}, "fullConnect: weights expect 4 inputs per group, input has 5", record);
    expectRefused({{1, 4, 0, 1, 3}}, "fullConnect: values of 4 channels expected", record);
    // Where none is read, none is needed.
    const auto without = [](int groups) {
        return [=](Recording& r) { return r->fullConnect(r.x[0], {groups, 3, 4, 1, 1, false, nullptr, r.reals(3)}); };
    };
    expectRefused({{1, 4, 1, 1, 1}}, "fullConnect: weights expected", without(1));
    expectAccepted({{1, 4, 1, 1, 1}}, without(0));
    expectAccepted({{0, 4, 1, 1, 1}}, without(1));
    expectAccepted({{1, 0, 1, 1, 1}}, without(1));
}

}  // namespace
