// One operation, or a few: against ReferenceBuilder, or refused by build.
//   expectReference({{1, 3, 4, 5, 3}}, [](Recording& r) { return r->relu(r.x[0]); });
//   expectRefused({{1, 3, 4, 5, 3}}, "pad: ", [](Recording& r) { return r->pad(r.x[0], {-1, 0, 0, 0}); });
// The shapes are those of the inputs. The recording's arrays are gone when the network runs.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/ModelWriterImpl.h"
#include "support/Net.h"
#include "support/Recording.h"
#include "support/ReferenceBuilder.h"
#include "support/values.h"

inline std::vector<int> fields(const Shape& s) { return {s.n, s.c, s.h, s.w, s.dims}; }

// What a model file that holds the operation says about the result's shape, if it can.
inline std::vector<int> writtenShape(const std::vector<Shape>& shapes, const Record& record) {
    try {
        ModelWriterImpl writer;
        Xs x;
        for (const Shape& shape : shapes) x.push_back(writer.input(shape));
        Recording recording(writer, x);
        return fields(writer.shapeOf(record(recording)));
    } catch (const std::out_of_range&) {
        return {};
    }
}

// Ordinary values and special ones; with the inputs' storage free for the result, and with inputs that must keep their
// values; twice in a row. By bits where tolerance is 0 and the back end has the same order of operations; with a
// tolerance, with ordinary values alone. On every instruction set.
inline void expectReference(const std::vector<Shape>& shapes, const Record& record, float tolerance = 0.0f,
                            const char* cfg = nullptr) {
    const float allowed = std::max(tolerance, backEndTolerance());
    const auto check = [&](bool inputsStay, bool special) {
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
            Recording plain(reference, expected), real(*net.operator->(), actual);
            expected.insert(expected.begin(), record(plain));
            actual.insert(actual.begin(), record(real));
            const std::vector<int> shape = fields(reference.shapeOf(expected[0])),
                                   written = writtenShape(shapes, record);
            ASSERT_EQ(fields(net->shapeOf(actual[0])), shape);
            EXPECT_TRUE(written.empty() || written == shape) << "the writer has another shape";
            net.build(inputsStay ? actual : Xs{actual[0]});
        }
        for (int run = 0; run < 2; ++run) {
            const std::vector<std::vector<float>> results = net.runAgain();
            ASSERT_EQ(results.size(), inputsStay ? actual.size() : 1);
            for (std::size_t i = 0; i < results.size(); ++i) {
                std::vector<float> wanted = reference.values(expected[i]);
                for (std::size_t k = 0; k < wanted.size(); ++k)
                    if (wanted[k] == ReferenceBuilder::kUnwritten) wanted[k] = results[i].at(k);
                allowed > 0.0f ? expectClose(results[i], wanted, allowed) : expectSameBits(results[i], wanted);
            }
        }
    };
    forEachInstructionSet([&] {
        for (int round = 0; round < (tolerance > 0.0f ? 2 : 4); ++round) check(round % 2 == 1, round > 1);
    });
}

// Builds and runs the network; what build said against it, or nothing.
inline std::optional<std::string> refusalOf(const std::vector<Shape>& shapes, const Record& record) {
    Net net;
    Xs x;
    for (const Shape& shape : shapes) x.push_back(net.input(shape, Values(1).reals(ReferenceBuilder::count(shape))));
    try {
        Recording recording(*net.operator->(), x);
        net.build({record(recording)});
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    EXPECT_EQ(net.runAgain().size(), 1u);
    return std::nullopt;
}

// text is a part of the refusal, or null where the network runs; what it must not touch is for the sanitizers to watch.
inline void expectRefused(const std::vector<Shape>& shapes, const char* text, const Record& record) {
    const std::optional<std::string> refusal = refusalOf(shapes, record);
    EXPECT_EQ(refusal.has_value(), text != nullptr) << refusal.value_or("accepted");
    EXPECT_NE(refusal.value_or("").find(text ? text : ""), std::string::npos)
        << refusal.value_or("") << ", expected " << text;
}

inline void expectAccepted(const std::vector<Shape>& shapes, const Record& record) {
    expectRefused(shapes, nullptr, record);
}
