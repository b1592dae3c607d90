// The trained network end to end, through libnolk.so as a host sees it, and the example program around it.
#include <gtest/gtest.h>
#include <nolk.h>

#include "support/Program.h"

namespace {

const std::string kFolder = DIGITS_FOLDER "/";

// Ten probabilities for each of the first 50 pictures, computed in batches.
std::vector<float> classify(int batch) {
    std::string model = fileText(kDigitsModel);
    nolk::Runner* runner = nolk_new_runner(nullptr, model.data(), static_cast<int>(model.size()), batch);
    if (!runner) return {};
    const std::string images = fileText(kFolder + "test-images.idx").substr(16, 50 * 784);
    std::vector<float> pixels, result(500);
    for (const char grey : images) pixels.push_back(static_cast<unsigned char>(grey) / 255.0f);
    for (int i = 0; i < 50; i += batch) {
        nolk::Tensor in{{batch, 1, 28, 28, 3}, &pixels.at(static_cast<std::size_t>(i) * 784)};
        nolk::Tensor out{{batch, 10, 1, 1, 1}, &result[static_cast<std::size_t>(i) * 10]};
        EXPECT_TRUE(runner->run(&in, 1, &out, 1));
    }
    runner->destroy();
    return result;
}

TEST(Digits, ProbabilitiesAreThoseOfTheTrainingFramework) {
    for (const int batch : {1, 50}) {
        const std::vector<float> actual = classify(batch);
        ASSERT_EQ(actual.size(), 500u);
        std::istringstream table(fileText(kFolder + "expected.csv"));
        std::string line, field;
        std::getline(table, line);
        std::size_t place = 0;
        while (std::getline(table, line)) {
            std::istringstream fields(line);
            for (int skip = 0; skip < 2; ++skip) std::getline(fields, field, ',');
            for (; std::getline(fields, field, ','); ++place)
                // expected.csv has six decimals; the framework sums in another order, which moves the fifth.
                EXPECT_NEAR(actual.at(place), std::stof(field), 1e-4f) << "value " << place << ", batch " << batch;
        }
        EXPECT_EQ(place, 200u);
    }
}

TEST(Digits, ProgramShowsPicturesCountsAndSaysWhatIsWrong) {
    const std::string cut = writeTemporary("cut.pgm", fileText(kFolder + "digit-0.pgm").substr(0, 700));
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string text;
    } cases[] = {
        {{}, 0, "493 of 500 right"},
        {{kDigitsModel, kFolder + "digit-3.pgm", kFolder + "digit-8.pgm"}, 0, "The network reads 8."},
        {{"no-such-file.cm"}, 1, "digits: no-such-file.cm: can not open file: no-such-file.cm"},
        {{kDigitsModel, cut}, 1, "digits: " + cut + ": "},
        {{kDigitsModel, kFolder + "test-images.idx", kFolder + "test-images.idx"}, 1, "not the labels"},
    };
    for (const auto& c : cases) {
        const ProgramResult result = runProgram(c.arguments);
        EXPECT_EQ(result.status, c.status) << result.err;
        EXPECT_NE((result.out + result.err).find(c.text), std::string::npos) << result.out << result.err;
    }
}

}  // namespace
