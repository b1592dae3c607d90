// PNG through libpng, with the samples as they are stored: no colour correction, and alpha is left out. Palettes become
// red, green and blue; greys of less than 8 bits are scaled to 8.
#include <png.h>

#include <csetjmp>
#include <cstdio>

#include "nolk/run/ImageDecoder.h"

namespace {

constexpr std::size_t kMessageBytes = 200;

// Owns the structures that libpng allocates.
struct PngReader {
    PngReader() = default;
    PngReader(const PngReader&) = delete;
    PngReader& operator=(const PngReader&) = delete;
    ~PngReader() { png_destroy_read_struct(&png, &info, nullptr); }

    png_structp png = nullptr;
    png_infop info = nullptr;
};

class PngDecoder final : public ImageDecoder {
public:
    explicit PngDecoder(const std::string& path);
    std::vector<unsigned char> samples() override;

private:
    // libpng leaves these with longjmp on errors, so nothing in them may need a destructor. Then they return false, and
    // message_ says why.
    bool readHead();
    bool readRows(png_bytepp rows);

    char message_[kMessageBytes] = "out of memory";
    FileHandle file_;
    PngReader reader_;
};

[[noreturn]] void onError(png_structp png, png_const_charp message) {
    std::snprintf(static_cast<char*>(png_get_error_ptr(png)), kMessageBytes, "%s", message);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}  // ignored: warnings are about data that does not change pixels

void readBytes(png_structp png, png_bytep to, std::size_t bytes) {
    auto* const file = static_cast<std::FILE*>(png_get_io_ptr(png));
    if (std::fread(to, 1, bytes, file) != bytes)
        png_error(png, std::ferror(file) ? "the file cannot be read" : "the file ends too early");
}

PngDecoder::PngDecoder(const std::string& path) : ImageDecoder(path), file_(std::fopen(path.c_str(), "rb")) {
    if (!file_) fail("can not open file");
    reader_.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, message_, onError, onWarning);
    if (reader_.png) reader_.info = png_create_info_struct(reader_.png);
    if (!reader_.info || !readHead()) fail(std::string("PNG image that cannot be decoded: ") + message_);
}

bool PngDecoder::readHead() {
    if (setjmp(png_jmpbuf(reader_.png))) return false;
    png_set_read_fn(reader_.png, file_.get(), readBytes);
    png_read_info(reader_.png, reader_.info);
    extents_.channels = png_get_color_type(reader_.png, reader_.info) & PNG_COLOR_MASK_COLOR ? 3 : 1;
    extents_.rows = static_cast<int>(png_get_image_height(reader_.png, reader_.info));
    extents_.columns = static_cast<int>(png_get_image_width(reader_.png, reader_.info));
    extents_.sampleBytes = png_get_bit_depth(reader_.png, reader_.info) > 8 ? 2 : 1;
    return true;
}

std::vector<unsigned char> PngDecoder::samples() {
    std::vector<unsigned char> samples(extents_.bytes());
    std::vector<png_bytep> rows;
    for (std::size_t i = 0; i < samples.size(); i += extents_.rowBytes()) rows.push_back(samples.data() + i);
    if (!readRows(rows.data())) fail(std::string("PNG image that cannot be decoded: ") + message_);
    return samples;
}

bool PngDecoder::readRows(png_bytepp rows) {
    if (setjmp(png_jmpbuf(reader_.png))) return false;
    png_set_expand(reader_.png);
    png_set_strip_alpha(reader_.png);
    png_set_interlace_handling(reader_.png);
    png_read_update_info(reader_.png, reader_.info);
    if (png_get_rowbytes(reader_.png, reader_.info) != extents_.rowBytes())
        png_error(reader_.png, "its rows have another size than its head says");
    png_read_image(reader_.png, rows);
    png_read_end(reader_.png, nullptr);  // a file that ends before it is truncated
    return true;
}

}  // namespace

std::unique_ptr<ImageDecoder> openPng(const std::string& path) { return std::make_unique<PngDecoder>(path); }
