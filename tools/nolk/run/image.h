// Binary PGM and PPM images ("P5" grey, "P6" red, green and blue) as inputs of a network.
#pragma once

#include <nolk.h>

#include <string>
#include <vector>

// value = (pixel - mean of the channel) * scale. Pixels count from 0 to the image's maximum, 255 as a rule.
struct PixelRule {
    double scale = 1;
    std::vector<double> mean = {0};  // one for all channels, or one for each
};

// Reads an image of expected.c channels, expected.h rows and expected.w columns, into [c, h, w]; values has room for
// it. Samples of two bytes (a maximum above 255) are read too. Throws std::runtime_error, "path: what, expected what",
// before any pixel is read.
void readImage(const std::string& path, const nolk::TensorShape& expected, const PixelRule& rule, float* values);
