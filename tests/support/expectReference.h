// One operation, or a few, of the built-in builder: against ReferenceBuilder, or refused by build.
//   expectReference({{1, 3, 4, 5, 3}}, [](Builder& b, Xs& x, Arrays&) { return b.relu(x[0]); });
//   expectRefused({{1, 3, 4, 5, 3}}, "pad: ", [](Builder& b, Xs& x, Arrays&) { return b.pad(x[0], {-1, 0, 0, 0}); });
// The shapes are those of the inputs, x[0] and so on. Arrays that come from the last argument are gone when it runs.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/Arrays.h"
#include "support/Net.h"
#include "support/ReferenceBuilder.h"
#include "support/values.h"

using Builder = nolk::RunnerBuilder;
using X = nolk::TensorX*;
using Xs = std::vector<X>;
using Shape = nolk::TensorShape;
using Record = std::function<X(Builder& b, Xs& x, Arrays& arrays)>;

inline std::vector<int> fields(const Shape& s) { return {s.n, s.c, s.h, s.w, s.dims}; }

// Ordinary values and special ones; with the inputs' storage free for the result, and with inputs that must keep their
// values; twice in a row. By bits where tolerance is 0, otherwise with ordinary values alone.
inline void expectReference(const std::vector<Shape>& shapes, const Record& record, float tolerance = 0.0f,
                            const char* cfg = nullptr) {
    for (int round = 0; round < (tolerance > 0.0f ? 2 : 4); ++round) {
        const bool inputsStay = round % 2 == 1, special = round > 1;
        SCOPED_TRACE(testing::Message() << "inputs stay: " << inputsStay << ", special values: " << special);
        ReferenceBuilder reference;
        Net net(cfg);
        Xs expected, actual;
        for (const Shape& shape : shapes) {
            const std::size_t count = ReferenceBuilder::count(shape);
            const auto seed = static_cast<std::uint32_t>(expected.size() + 1);
            const std::vector<float> values = special ? valuesWithSpecials(seed, count) : Values(seed).reals(count);
            expected.push_back(reference.input(shape, values));
            actual.push_back(net.input(shape, values));
        }
        {
            Arrays arrays(1), same(1);
            expected.insert(expected.begin(), record(reference, expected, arrays));
            actual.insert(actual.begin(), record(*net.operator->(), actual, same));
            ASSERT_EQ(fields(net->shapeOf(actual[0])), fields(reference.shapeOf(expected[0])));
            net.build(inputsStay ? actual : Xs{actual[0]});
        }
        for (int run = 0; run < 2; ++run) {
            const std::vector<std::vector<float>> results = net.runAgain();
            ASSERT_EQ(results.size(), inputsStay ? actual.size() : 1);
            for (std::size_t i = 0; i < results.size(); ++i) {
                std::vector<float> wanted = reference.values(expected[i]);
                for (std::size_t k = 0; k < wanted.size(); ++k)
                    if (wanted[k] == ReferenceBuilder::kUnwritten) wanted[k] = results[i].at(k);
                tolerance > 0.0f ? expectClose(results[i], wanted, tolerance) : expectSameBits(results[i], wanted);
            }
        }
    }
}

// Builds and runs the network; what build said against it, or nothing.
inline std::optional<std::string> refusalOf(const std::vector<Shape>& shapes, const Record& record) {
    Net net;
    Xs x;
    for (const Shape& shape : shapes) x.push_back(net.input(shape, Values(1).reals(ReferenceBuilder::count(shape))));
    try {
        Arrays arrays(1);
        net.build({record(*net.operator->(), x, arrays)});
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    EXPECT_EQ(net.runAgain().size(), 1u);
    return std::nullopt;
}

inline void expectRefused(const std::vector<Shape>& shapes, const std::string& text, const Record& record) {
    const std::string refusal = refusalOf(shapes, record).value_or("accepted");
    EXPECT_NE(refusal.find(text), std::string::npos) << "refusal: \"" << refusal << "\", expected \"" << text << "\"";
}

// It runs; what it must not touch is for the sanitizers to watch.
inline void expectAccepted(const std::vector<Shape>& shapes, const Record& record) {
    EXPECT_EQ(refusalOf(shapes, record), std::nullopt);
}
