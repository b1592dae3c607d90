// Results of fixed arithmetic have the bits that answers.txt records, whatever processor the library is built for.
#include <gtest/gtest.h>

#include <cinttypes>
#include <fstream>
#include <sstream>

#include "support/Net.h"
#include "support/everyOperation.h"

namespace {

// FNV-1a over the bytes, little-endian. All NaNs count as one: which of them comes out is the processor's choice.
std::string hashOf(const std::vector<float>& values) {
    std::uint64_t hash = 14695981039346656037u;
    for (const float v : values) {
        std::uint32_t bits = 0x7FC00000;
        if (!std::isnan(v)) std::memcpy(&bits, &v, sizeof bits);
        for (int shift = 0; shift < 32; shift += 8) hash = (hash ^ (bits >> shift & 0xFF)) * 1099511628211u;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}

// A line for each operation: hashes for ordinary values and for such with NaN, infinities and signed zeros; the name.
std::string answers() {
    std::vector<std::string> lines;
    for (const bool special : {false, true}) {
        Net net;
        Arrays arrays(1);
        for (const nolk::TensorShape& shape : {nolk::TensorShape{2, 4, 9, 21, 3}, {2, 3, 1, 1, 1}, {2, 1, 4, 3, 3}}) {
            const auto count = static_cast<std::size_t>(shape.n * shape.c * shape.h * shape.w);
            net.feed(shape, special ? valuesWithSpecials(2, count) : Values(2).reals(count));
        }
        const std::vector<Operation> operations = recordEveryOperation(*net.operator->(), arrays, 2);
        std::vector<nolk::TensorX*> outputs;
        for (const Operation& o : operations) outputs.push_back(o.result);
        const auto results = net.run(outputs);
        lines.resize(results.size());
        for (std::size_t i = 0; i < results.size(); ++i) {
            if (!operations[i].isFixed) continue;
            lines[i] += hashOf(results[i]) + (special ? std::string(" ") + operations[i].name + "\n" : " ");
        }
    }
    std::string text;
    for (const std::string& line : lines) text += line;
    return text;
}

TEST(Answers, AreTheSameOnEveryProcessor) {
    std::ifstream file(ANSWERS_FILE);
    std::ostringstream expected;
    expected << file.rdbuf();
    const std::string actual = answers();
    EXPECT_TRUE(actual == expected.str()) << "answers.txt has\n" << expected.str() << "computed are\n" << actual;
}

}  // namespace
