// Images as inputs of a network: PNG, JPEG, and binary PGM and PPM.
//   readImage("photo.jpg", {1, 3, 224, 224, 3}, {{1.0 / 255}, {123.7, 116.3, 103.5}, false}, values);
// An image of other extents than the network expects is an error: nothing is resized or converted to grey.
#pragma once

#include <nolk.h>

#include <string>
#include <vector>

// value = (pixel - mean) * scale. Pixels have the values of the file: 0 to 255, to 65535 for PNG with 16 bits, to the
// maximum in the head of a PGM or PPM file.
struct PixelRule {
    std::vector<double> scale = {1};  // one for all of the network's channels, or one for each
    std::vector<double> mean = {0};   // likewise
    bool bgr = false;                 // the network's channels are blue, green, red
};

// Reads an image of expected.c channels, expected.h rows and expected.w columns, into [c, h, w]; values has room for
// it. Throws std::runtime_error, "path: what, expected what". No memory is reserved for extents that are not expected.
void readImage(const std::string& path, const nolk::TensorShape& expected, const PixelRule& rule, float* values);
