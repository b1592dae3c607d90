// Binary PGM and PPM images: "P5" (grey) or "P6" (red, green and blue), then columns, rows and the maximum as text,
// then the samples, of two bytes if the maximum is above 255.
#include <cctype>
#include <cstdint>

#include "nolk/model/InputFile.h"
#include "nolk/run/ImageDecoder.h"

namespace {

class PnmDecoder final : public ImageDecoder {
public:
    explicit PnmDecoder(const std::string& path);
    std::vector<unsigned char> samples() override;

private:
    int readNumber();

    InputFile file_;
};

PnmDecoder::PnmDecoder(const std::string& path) : ImageDecoder(path), file_(path) {
    file_.get();  // P
    extents_.channels = file_.get() == '5' ? 1 : 3;
    extents_.columns = readNumber();
    extents_.rows = readNumber();
    const int maximum = readNumber();
    if (maximum < 1 || maximum > 65535)
        fail("damaged image: maximum " + std::to_string(maximum) + ", expected 1 to 65535");
    extents_.sampleBytes = maximum > 255 ? 2 : 1;
}

// Reads the next number of the head, after blanks and comments, and the byte after it, which must be a blank.
int PnmDecoder::readNumber() {
    int c = file_.get();
    while (c == '#' || std::isspace(c)) {
        if (c == '#')
            while (c != '\n' && c != -1) c = file_.get();
        c = file_.get();
    }
    int number = 0, digits = 0;
    for (; std::isdigit(c); c = file_.get()) {
        if (++digits > 9) fail("damaged image: a number of the head has more than 9 digits");
        number = number * 10 + (c - '0');
    }
    if (digits == 0 || !std::isspace(c)) fail("damaged image: the head does not hold three numbers");
    return number;
}

std::vector<unsigned char> PnmDecoder::samples() {
    const auto bytes = static_cast<std::int64_t>(extents_.bytes());
    if (file_.left() != bytes)
        fail(std::to_string(file_.left()) + " bytes of pixels, expected " + std::to_string(bytes));
    std::vector<unsigned char> samples(extents_.bytes());
    file_.read(samples.data(), bytes);
    return samples;
}

}  // namespace

std::unique_ptr<ImageDecoder> openPnm(const std::string& path) { return std::make_unique<PnmDecoder>(path); }
