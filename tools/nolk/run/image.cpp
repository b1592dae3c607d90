#include "nolk/run/image.h"

#include <cstddef>
#include <stdexcept>

#include "nolk/run/ImageDecoder.h"

namespace {

std::string extentsText(int channels, int rows, int columns) {
    return "[" + std::to_string(channels) + ", " + std::to_string(rows) + ", " + std::to_string(columns) + "]";
}

void checkCount(const std::string& path, std::size_t count, const char* noun, int channels) {
    if (count != 1 && count != static_cast<std::size_t>(channels))
        throw std::runtime_error(path + ": " + std::to_string(count) + " " + noun + ", expected 1" +
                                 (channels > 1 ? " or " + std::to_string(channels) : ""));
}

void check(const std::string& path, const ImageExtents& image, const nolk::TensorShape& expected,
           const PixelRule& rule) {
    if (image.channels != expected.c || image.rows != expected.h || image.columns != expected.w)
        throw std::runtime_error(path + ": image of " + extentsText(image.channels, image.rows, image.columns) +
                                 ", expected " + extentsText(expected.c, expected.h, expected.w) +
                                 " (channels, rows, columns)");
    checkCount(path, rule.mean.size(), "means", image.channels);
    checkCount(path, rule.scale.size(), "scales", image.channels);
}

double ofChannel(const std::vector<double>& numbers, int channel) {
    return numbers[numbers.size() == 1 ? 0 : static_cast<std::size_t>(channel)];
}

}  // namespace

void readImage(const std::string& path, const nolk::TensorShape& expected, const PixelRule& rule, float* values) {
    const std::unique_ptr<ImageDecoder> decoder = openImage(path);
    const ImageExtents& image = decoder->extents();
    check(path, image, expected, rule);
    const std::vector<unsigned char> samples = decoder->samples();
    const auto sampleBytes = static_cast<std::size_t>(image.sampleBytes);
    const std::size_t pixelBytes = static_cast<std::size_t>(image.channels) * sampleBytes;
    for (int c = 0; c < image.channels; ++c) {
        const double mean = ofChannel(rule.mean, c), scale = ofChannel(rule.scale, c);
        const auto stored = static_cast<std::size_t>(rule.bgr ? image.channels - 1 - c : c);
        for (std::size_t i = stored * sampleBytes; i < samples.size(); i += pixelBytes) {
            const int pixel = sampleBytes == 1 ? samples[i] : samples[i] << 8 | samples[i + 1];
            *values++ = static_cast<float>((pixel - mean) * scale);
        }
    }
}
