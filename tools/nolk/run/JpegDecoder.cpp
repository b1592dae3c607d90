// JPEG through libjpeg, baseline and progressive, grey or colour, as the pixels are stored: an orientation in the
// metadata is not applied. Warnings of libjpeg are errors here, because it fills gaps in damaged files with grey.
#include <csetjmp>
#include <cstdio>
// jpeglib.h needs what <cstdio> defines.
#include <jpeglib.h>

#include "nolk/run/ImageDecoder.h"

namespace {

// The state of libjpeg, and the place that it jumps to when it fails.
struct JpegReader {
    JpegReader() = default;
    JpegReader(const JpegReader&) = delete;
    JpegReader& operator=(const JpegReader&) = delete;
    ~JpegReader() { jpeg_destroy_decompress(&jpeg); }

    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
    std::jmp_buf failed{};
    char message[JMSG_LENGTH_MAX] = "";
};

class JpegDecoder final : public ImageDecoder {
public:
    explicit JpegDecoder(const std::string& path);
    std::vector<unsigned char> samples() override;

private:
    // libjpeg leaves these with longjmp on errors, so nothing in them may need a destructor. Then they return false,
    // and reader_.message says why.
    bool readHead();
    bool readRows(unsigned char* samples);

    FileHandle file_;
    JpegReader reader_;
};

[[noreturn]] void onError(j_common_ptr jpeg) {
    auto& reader = *static_cast<JpegReader*>(jpeg->client_data);
    jpeg->err->format_message(jpeg, reader.message);
    std::longjmp(reader.failed, 1);
}

void onMessage(j_common_ptr jpeg, int level) {
    constexpr int kWarning = -1;  // other levels are for tracing
    if (level == kWarning) onError(jpeg);
}

JpegDecoder::JpegDecoder(const std::string& path) : ImageDecoder(path), file_(std::fopen(path.c_str(), "rb")) {
    if (!file_) fail("can not open file");
    reader_.jpeg.err = jpeg_std_error(&reader_.errors);
    reader_.jpeg.client_data = &reader_;
    reader_.errors.error_exit = onError;
    reader_.errors.emit_message = onMessage;
    if (!readHead()) fail(std::string("JPEG image that cannot be decoded: ") + reader_.message);
    const J_COLOR_SPACE colours = reader_.jpeg.jpeg_color_space;
    if (colours != JCS_GRAYSCALE && colours != JCS_YCbCr && colours != JCS_RGB)
        fail("JPEG image that is neither grey nor red, green and blue");
    extents_.channels = colours == JCS_GRAYSCALE ? 1 : 3;
    extents_.rows = static_cast<int>(reader_.jpeg.image_height);
    extents_.columns = static_cast<int>(reader_.jpeg.image_width);
}

bool JpegDecoder::readHead() {
    if (setjmp(reader_.failed)) return false;
    jpeg_create_decompress(&reader_.jpeg);
    jpeg_stdio_src(&reader_.jpeg, file_.get());
    jpeg_read_header(&reader_.jpeg, TRUE);
    return true;
}

std::vector<unsigned char> JpegDecoder::samples() {
    std::vector<unsigned char> samples(extents_.bytes());
    if (!readRows(samples.data())) fail(std::string("JPEG image that cannot be decoded: ") + reader_.message);
    return samples;
}

bool JpegDecoder::readRows(unsigned char* samples) {
    if (setjmp(reader_.failed)) return false;
    reader_.jpeg.out_color_space = extents_.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&reader_.jpeg);
    while (reader_.jpeg.output_scanline < reader_.jpeg.output_height) {
        JSAMPROW row = samples + reader_.jpeg.output_scanline * extents_.rowBytes();
        jpeg_read_scanlines(&reader_.jpeg, &row, 1);
    }
    jpeg_finish_decompress(&reader_.jpeg);  // fails when the end is missing
    return true;
}

}  // namespace

std::unique_ptr<ImageDecoder> openJpeg(const std::string& path) { return std::make_unique<JpegDecoder>(path); }
