// Reads an image file: the head when it is opened, the pixels on request. Callers must check the extents first, because
// samples() allocates memory for as many pixels as the head says.
//   std::unique_ptr<ImageDecoder> decoder = openImage("x.png");
//   if (decoder->extents().rows == 28) ... decoder->samples()
// Damaged and truncated files are errors, even if a viewer would show a part of the image. All failures are a
// std::runtime_error with one line, "x.png: what".
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

struct ImageExtents {
    int channels = 0;  // 1 grey, 3 red, green and blue
    int rows = 0;
    int columns = 0;
    int sampleBytes = 1;  // 1 or 2

    std::size_t rowBytes() const {
        return static_cast<std::size_t>(channels) * static_cast<std::size_t>(columns) *
               static_cast<std::size_t>(sampleBytes);
    }
    std::size_t bytes() const { return rowBytes() * static_cast<std::size_t>(rows); }
};

class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;
    ImageDecoder(const ImageDecoder&) = delete;
    ImageDecoder& operator=(const ImageDecoder&) = delete;

    const ImageExtents& extents() const { return extents_; }

    // The samples [h, w, c], each with its high byte first. May be called once.
    virtual std::vector<unsigned char> samples() = 0;

protected:
    explicit ImageDecoder(std::string path) : path_(std::move(path)) {}
    [[noreturn]] void fail(const std::string& what) const;

    ImageExtents extents_;

private:
    std::string path_;
};

// Selects the decoder by the contents of the file, not by its name.
std::unique_ptr<ImageDecoder> openImage(const std::string& path);

// Decoders of single formats. If the program is built without libpng or libjpeg, their decoders do not exist.
std::unique_ptr<ImageDecoder> openPnm(const std::string& path);
std::unique_ptr<ImageDecoder> openPng(const std::string& path);
std::unique_ptr<ImageDecoder> openJpeg(const std::string& path);

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;
