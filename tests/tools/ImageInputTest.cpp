// Images as inputs, in every format that the program reads.
#include <algorithm>
#include <cmath>

#include "support/Program.h"
#include "support/npyFile.h"
#include "support/pngFile.h"

namespace {

// Written by libjpeg with quality 98 and no subsampling, from (200, 30, 60) and (20, 180, 90).
const std::string kColourJpeg =
    "ffd8ffe000104a46494600010100000100010000ffdb004300010101010101010101010101010101020101010101020101010202"
    "02020202020202030304030303030302020304030304040404040203050504040504040404ffdb00430101010101010102010102"
    "04030203040404040404040404040404040404040404040404040404040404040404040404040404040404040404040404040404"
    "0404ffc00011080001000203011100021101031101ffc40014000100000000000000000000000000000007ffc4001a1000010501"
    "000000000000000000000000060003043676b4ffc4001501010100000000000000000000000000000809ffc40021110000010d00"
    "0000000000000000000000000102030405070833387176b1b5ffda000c03010002110311003f00290aa689666072b48e69a69d72"
    "ec4538d9acc7b993b7faab63ffd9";

// Progressive, from 10 and 240.
const std::string kGreyJpeg =
    "ffd8ffe000104a46494600010100000100010000ffdb004300010101010101010101010101010101020101010101020101010202"
    "02020202020202030304030303030302020304030304040404040203050504040504040404ffc2000b080001000201011100ffc4"
    "0014000100000000000000000000000000000009ffda0008010100000001537fffc4001510010100000000000000000000000000"
    "000737ffda0008010100010502309a7fffc4001910000105000000000000000000000000000004050776b4ffda0008010100063f"
    "028f28cd38139fffc40014100100000000000000000000000000000000ffda0008010100013f215effda00080101000000107fff"
    "c40014100100000000000000000000000000000000ffda0008010100013f1070ffd9";

std::string jpeg(const std::string& digits) {
    const Bytes bytes = hex(digits);
    return {bytes.begin(), bytes.end()};
}

std::string rows(const std::vector<int>& bytes) { return {bytes.begin(), bytes.end()}; }

// The format that the file needs and this program was built without, or "".
std::string missingFormat([[maybe_unused]] const std::string& bytes) {
#ifndef NOLK_HAS_PNG
    if (bytes.substr(0, 4) == "\x89PNG") return "PNG";
#endif
#ifndef NOLK_HAS_JPEG
    if (bytes.substr(0, 3) == "\xff\xd8\xff") return "JPEG";
#endif
    return "";
}

// Runs a network that hands its input [1, channels, 1, columns] to its output.
ProgramResult runOnImage(int channels, int columns, const std::string& file, std::vector<std::string> arguments) {
    const std::string model = modelFile("same.cm", [channels, columns](nolk::RunnerBuilder& b) {
        return Outputs{b.relu(b.input({1, channels, 1, columns, 3}))};
    });
    arguments.insert(arguments.begin(), {"run", model, "--input", file});
    return runProgram(arguments);
}

std::vector<float> valuesOf(int channels, int columns, const std::string& file, std::vector<std::string> arguments) {
    const std::string output = temporaryPath("values.npy");
    arguments.insert(arguments.end(), {"--output", output});
    const ProgramResult r = runOnImage(channels, columns, file, arguments);
    EXPECT_EQ(r.status, 0) << r.err;
    return npyValues(fileText(output));
}

TEST(ImageInput, GivesThePixelsOfEveryFormat) {
    const std::string palette = pngChunk("PLTE", rows({1, 2, 3, 200, 100, 50}));
    const std::string halfClear = pngChunk("tRNS", rows({255, 128}));
    constexpr float kJpegLoss = 2;
    const struct {
        const char* name;
        std::string bytes;
        int channels;
        std::vector<float> expected;
        float tolerance = 0;
    } cases[] = {
        {"grey.png", pngFile({2, 1, 8, 0}, rows({0, 10, 240})), 1, {10, 240}},
        {"bits.png", pngFile({5, 1, 1, 0}, rows({0, 0xA8})), 1, {255, 0, 255, 0, 255}},
        {"deep.png", pngFile({2, 1, 16, 0}, rows({0, 1, 2, 255, 254})), 1, {258, 65534}},
        {"rgb.png", pngFile({2, 1, 8, 2}, rows({0, 1, 2, 3, 4, 5, 6})), 3, {1, 4, 2, 5, 3, 6}},
        {"rgba.png", pngFile({1, 1, 16, 6}, rows({0, 1, 0, 2, 0, 3, 0, 0, 0})), 3, {256, 512, 768}},
        {"palette.png", pngFile({2, 1, 2, 3}, rows({0, 0x40}), palette + halfClear), 3, {200, 1, 100, 2, 50, 3}},
        {"interlaced.png", pngFile({2, 1, 8, 0, 1}, rows({0, 10, 0, 240})), 1, {10, 240}},
        {"a PNG.jpg", pngFile({1, 1, 8, 0}, rows({0, 7})), 1, {7}},
        {"COLOUR.JPG", jpeg(kColourJpeg), 3, {200, 20, 30, 180, 60, 90}, kJpegLoss},
        {"grey.jpeg", jpeg(kGreyJpeg), 1, {10, 240}, kJpegLoss},
        {"d.ppm", "P6 # by hand\n2\t1 300\n" + rows({0, 1, 0, 2, 0, 3, 1, 0, 1, 1, 1, 2}), 3, {1, 256, 2, 257, 3, 258}},
    };
    for (const auto& c : cases) {
        const std::string file = writeTemporary(c.name, c.bytes), missing = missingFormat(c.bytes);
        const int columns = static_cast<int>(c.expected.size()) / c.channels;
        if (!missing.empty()) {
            expectOneError(runOnImage(c.channels, columns, file, {}), file + ": ",
                           "a " + missing + " image, and this program was built without " + missing);
            continue;
        }
        const std::vector<float> values = valuesOf(c.channels, columns, file, {});
        ASSERT_EQ(values.size(), c.expected.size()) << c.name;
        for (std::size_t i = 0; i < values.size(); ++i)
            EXPECT_NEAR(values[i], c.expected[i], c.tolerance) << c.name << ", value " << i;
    }
}

TEST(ImageInput, MeanAndScaleAreOfTheNetworksChannels) {
    const std::string colour = writeTemporary("c.ppm", "P6 2 1 255 " + rows({1, 2, 3, 255, 128, 64}));
    const std::string grey = writeTemporary("g.pgm", "P5 2 1 255 " + rows({1, 255}));
    const struct {
        std::vector<std::string> arguments;
        std::vector<float> expected;
    } cases[] = {
        {{}, {1, 255, 2, 128, 3, 64}},
        {{"--mean", "1/2", "--scale", "2"}, {1, 509, 3, 255, 5, 127}},
        {{"--mean", "0.5,1,1/2", "--scale", "2"}, {1, 509, 2, 254, 5, 127}},
        {{"--bgr", "--mean", "3,1,0", "--scale", "1,1/2,10"}, {0, 61, 0.5f, 63.5f, 10, 2550}},
    };
    for (const auto& c : cases) EXPECT_EQ(valuesOf(3, 2, colour, c.arguments), c.expected);
    EXPECT_EQ(valuesOf(1, 2, grey, {"--bgr", "--mean", "1"}), (std::vector<float>{0, 254}));
    expectOneError(runOnImage(3, 2, colour, {"--mean", "1,2"}), colour + ": ", "2 means, expected 1 or 3");
    expectOneError(runOnImage(3, 2, colour, {"--scale", "1,2,3,4"}), colour + ": ", "4 scales, expected 1 or 3");
    expectOneError(runOnImage(1, 2, grey, {"--scale", "1,2,3"}), grey + ": ", "3 scales, expected 1");
}

// Heads that claim a lot must not be believed: the extents are refused before there is memory for them.
TEST(ImageInput, RefusesOtherImagesAndDamagedOnes) {
    const std::string png = pngFile({2, 1, 8, 0}, rows({0, 10, 240}));
    const std::string colours = jpeg(kColourJpeg);
    std::string wrongSum = png, wrongMarker = colours, large = colours;
    wrongSum[png.size() - 13] ^= 1;  // of the data
    wrongMarker[2] = '?';
    const std::size_t frame = colours.find("\xff\xc0");
    large.replace(frame + 5, 4, rows({255, 220, 255, 220}));
    const struct {
        const char* name;
        std::string bytes, wish;
    } cases[] = {
        {"a.png", "", "not a PNG, JPEG, or binary PGM or PPM image"},
        {"a.png", wrongSum, "PNG image that cannot be decoded: IDAT: CRC error"},
        {"a.png", pngFile({2, 1, 8, 0}, rows({0, 10})), "PNG image that cannot be decoded: "},
        {"a.png", pngFile({1000000, 1000000, 16, 0}, ""), "image of [1, 1000000, 1000000], expected [1, 1, 2]"},
        {"a.png", pngFile({0x7fffffff, 1, 8, 0}, ""), "PNG image that cannot be decoded: "},
        {"a.jpg", colours, "image of [3, 1, 2], expected [1, 1, 2] (channels, rows, columns)"},
        {"a.jpg", large, "image of [3, 65500, 65500], expected [1, 1, 2]"},
        {"a.jpg", wrongMarker, "not a PNG, JPEG, or binary PGM or PPM image"},
    };
    for (const auto& c : cases) {
        const std::string file = writeTemporary(c.name, c.bytes), missing = missingFormat(c.bytes);
        expectOneError(runOnImage(1, 2, file, {}), file + ": ",
                       missing.empty() ? c.wish : "was built without " + missing);
    }
    for (const std::string& whole : {png, jpeg(kGreyJpeg)})
        for (std::size_t size = whole.size(); size-- > 0; size -= std::min<std::size_t>(size, 8)) {
            const std::string file = writeTemporary("cut.png", whole.substr(0, size));
            expectOneError(runOnImage(1, 2, file, {}), file + ": ");
        }
}

}  // namespace
