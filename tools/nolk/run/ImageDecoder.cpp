#include "nolk/run/ImageDecoder.h"

#include <algorithm>
#include <stdexcept>

#include "nolk/model/InputFile.h"

namespace {

constexpr char kPngBegin[] = "\x89PNG\r\n\x1a\n", kJpegBegin[] = "\xff\xd8\xff";

bool beginsWith(const std::string& bytes, const std::string& begin) {
    return bytes.compare(0, begin.size(), begin) == 0;
}

}  // namespace

void ImageDecoder::fail(const std::string& what) const { throw std::runtime_error(path_ + ": " + what); }

std::unique_ptr<ImageDecoder> openImage(const std::string& path) {
    InputFile file(path);
    std::string begin(static_cast<std::size_t>(std::min<std::int64_t>(file.left(), 8)), '\0');
    file.read(begin.data(), static_cast<std::int64_t>(begin.size()));
    if (beginsWith(begin, "P5") || beginsWith(begin, "P6")) return openPnm(path);
    if (beginsWith(begin, kPngBegin)) {
#ifdef NOLK_HAS_PNG
        return openPng(path);
#else
        file.fail("a PNG image, and this program was built without PNG");
#endif
    }
    if (beginsWith(begin, kJpegBegin)) {
#ifdef NOLK_HAS_JPEG
        return openJpeg(path);
#else
        file.fail("a JPEG image, and this program was built without JPEG");
#endif
    }
    file.fail("not a PNG, JPEG, or binary PGM or PPM image");
}
