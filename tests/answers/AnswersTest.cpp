// Results of fixed arithmetic have the bits that answers.txt records, whatever processor the library is built for.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "support/Net.h"
#include "support/everyOperation.h"
#include "support/hashOf.h"

namespace {

// A line for each operation: hashes for ordinary values and for such with NaN, infinities and signed zeros; the name.
std::string answers() {
    const Shape shape{2, 2, 17, 17, 3};
    std::ostringstream text;
    for (const OperationCase& o : everyOperation(shape)) {
        if (!o.isFixed) continue;
        for (const bool special : {false, true}) {
            Net net;
            const auto values = [&](std::uint32_t seed) {
                return special ? valuesWithSpecials(seed, 1156) : Values(seed).reals(1156);
            };
            Recording recording(*net.operator->(), {net.input(shape, values(2)), net.constant(shape, values(3))});
            text << hashOf(net.run({o.record(recording)})[0]) << " ";
        }
        text << o.name << "\n";
    }
    return text.str();
}

TEST(Answers, AreTheSameOnEveryProcessor) {
    std::ifstream file(ANSWERS_FILE);
    std::ostringstream expected;
    expected << file.rdbuf();
    const std::string actual = answers();
    EXPECT_TRUE(actual == expected.str()) << "answers.txt has\n" << expected.str() << "computed are\n" << actual;
}

}  // namespace
