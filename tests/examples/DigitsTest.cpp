// The trained network end to end, through libnolk.so as a host sees it, and the example program around it.
#include <gtest/gtest.h>
#include <nolk.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kFolder = DIGITS_FOLDER "/";

std::string fileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string writeTemporary(const std::string& name, const std::string& bytes) {
    const std::string path = ::testing::TempDir() + "nolk-digits-" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

// Ten probabilities for each of the 500 images, computed in batches.
std::vector<float> classifyAll(int batch) {
    std::string model = fileBytes(kFolder + "digits.cm");
    nolk::Runner* runner = nolk_new_runner(nullptr, model.data(), static_cast<int>(model.size()), batch);
    if (!runner) return {};
    const std::string images = fileBytes(kFolder + "test-images.idx").substr(16);
    std::vector<float> pixels(images.size()), result(images.size() / 784 * 10);
    std::transform(images.begin(), images.end(), pixels.begin(),
                   [](char grey) { return static_cast<unsigned char>(grey) / 255.0f; });
    for (int i = 0; i < 500; i += batch) {
        nolk::Tensor in{{batch, 1, 28, 28, 3}, &pixels[static_cast<std::size_t>(i) * 784]};
        nolk::Tensor out{{batch, 10, 1, 1, 1}, &result[static_cast<std::size_t>(i) * 10]};
        EXPECT_TRUE(runner->run(&in, 1, &out, 1));
    }
    runner->destroy();
    return result;
}

TEST(Digits, ProbabilitiesAreThoseOfTheTrainingFramework) {
    // expected.csv has six decimals; the framework sums in another order, which moves the fifth.
    constexpr float kTolerance = 1e-4f;
    for (const int batch : {1, 50}) {
        const std::vector<float> actual = classifyAll(batch);
        ASSERT_EQ(actual.size(), 5000u);
        std::istringstream table(fileBytes(kFolder + "expected.csv"));
        std::string line, field;
        std::getline(table, line);
        int rows = 0;
        for (; std::getline(table, line); ++rows) {
            std::istringstream fields(line);
            for (int skip = 0; skip < 2; ++skip) std::getline(fields, field, ',');
            for (int digit = 0; digit < 10; ++digit) {
                ASSERT_TRUE(std::getline(fields, field, ','));
                EXPECT_NEAR(actual[static_cast<std::size_t>(rows) * 10 + digit], std::stof(field), kTolerance)
                    << "image " << rows << ", digit " << digit << ", batch " << batch;
            }
        }
        EXPECT_EQ(rows, 20);
    }
}

TEST(Digits, Reads493Of500ImagesRight) {
    const std::vector<float> p = classifyAll(50);
    ASSERT_EQ(p.size(), 5000u);
    const std::string labels = fileBytes(kFolder + "test-labels.idx").substr(8);
    int right = 0;
    for (std::size_t i = 0; i < 500; ++i)
        right += std::max_element(&p[i * 10], &p[i * 10] + 10) - &p[i * 10] == labels[i];
    EXPECT_EQ(right, 493);
}

struct Outcome {
    int status;
    std::string out, err;
};

Outcome runProgram(const std::string& arguments) {
    // Tests run side by side, each in a process of its own.
    const std::string errPath = writeTemporary("stderr-" + std::to_string(getpid()), "");
    const std::string command = std::string(DIGITS_PROGRAM " ") + arguments + " 2>'" + errPath + "'";
    std::FILE* pipe = popen(command.c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    std::string out;
    for (int c; (c = std::fgetc(pipe)) != EOF;) out += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out, fileBytes(errPath)};
}

TEST(Digits, ProgramShowsImagesAndCounts) {
    const struct {
        std::string arguments, wish;
    } cases[] = {
        {"", "493 of 500 right"},
        {kFolder + "digits.cm " + kFolder + "digit-3.pgm " + kFolder + "digit-8.pgm", "The network reads 8."},
        {"--help", "usage: digits"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = runProgram(c.arguments);
        EXPECT_EQ(outcome.status, 0) << c.arguments << outcome.err;
        EXPECT_NE(outcome.out.find(c.wish), std::string::npos) << outcome.out;
    }
}

TEST(Digits, ProgramSaysWhatIsWrongWithAFileAndFails) {
    const std::string model = kFolder + "digits.cm", images = kFolder + "test-images.idx";
    std::string flipped = fileBytes(model);
    flipped[flipped.size() / 2] ^= 1;
    std::string huge = fileBytes(images);
    huge.replace(4, 12, 12, '\xff');
    const struct {
        std::string arguments, wish;
    } cases[] = {
        {"no-such-file.cm", "can not open file: no-such-file.cm"},
        {images, "wrong head: "},
        {writeTemporary("flipped.cm", flipped), "wrong crc32"},
        {writeTemporary("empty.cm", ""), "empty or damaged"},
        {model + " no-such-file.pgm", "no-such-file.pgm: can not open file"},
        {model + " " + model, "not a binary PGM"},
        {model + " " + writeTemporary("cut.pgm", fileBytes(kFolder + "digit-0.pgm").substr(0, 700)), "or damaged"},
        {model + " " + writeTemporary("small.pgm", std::string("P5\n1 1\n255\n\0", 12)), "do not fit together"},
        {model + " " + writeTemporary("cut.idx", fileBytes(images).substr(0, 9)) + " " + images, "or damaged"},
        {model + " " + writeTemporary("huge.idx", huge) + " " + images, "or damaged"},
        {model + " " + images + " " + images, "not the labels"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = runProgram(c.arguments);
        EXPECT_EQ(outcome.status, 1) << c.arguments;
        EXPECT_NE(outcome.err.find("digits: "), std::string::npos) << outcome.err;
        EXPECT_NE(outcome.err.find(c.wish), std::string::npos) << outcome.err;
    }
}

}  // namespace
