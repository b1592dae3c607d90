// Recognises handwritten digits with a trained network: shows some images with their results, and counts the correct
// results for a whole set of images. Uses only nolk's public header.
#include <nolk.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr char kUsage[] =
    "usage: digits [MODEL [IMAGES.idx LABELS.idx | IMAGE.pgm ...]]\n"
    "  MODEL      a model file: grey values [1, 1, rows, columns], 0 paper to 1 ink, to probabilities [1, 10]\n"
    "  *.idx      images and their digits, to be counted; by default the 500 that come with the example\n"
    "  IMAGE.pgm  binary grey images to be shown, 0 paper to 255 ink\n";

constexpr int kDigits = 10;

struct Image {
    int rows, columns;
    std::vector<float> pixels;  // 0 (paper) to 1 (ink)
};

struct Destroy {
    template <typename Object>
    void operator()(Object* object) const {
        object->destroy();
    }
};
using OwnedRunner = std::unique_ptr<nolk::Runner, Destroy>;

OwnedRunner loadModel(const std::string& path) {
    const std::unique_ptr<nolk::ModelReader, Destroy> reader(nolk_new_model_reader());
    const std::unique_ptr<nolk::RunnerBuilder, Destroy> builder(nolk_new_runner_builder(nullptr));
    OwnedRunner runner(reader && builder ? reader->readFromFile(builder.get(), 1, path.c_str()) : nullptr);
    if (runner) return runner;
    char reason[256];
    nolk_pop_error_message(reason, sizeof reason);
    throw std::runtime_error(path + ": " + (*reason ? reason : "empty or damaged"));
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": can not open file");
    return {std::istreambuf_iterator<char>(file), {}};
}

Image toImage(long long rows, long long columns, const std::string& bytes, std::size_t offset) {
    Image image{static_cast<int>(rows), static_cast<int>(columns), {}};
    for (long long i = 0; i < rows * columns; ++i)
        image.pixels.push_back(static_cast<unsigned char>(bytes[offset++]) / 255.0f);
    return image;
}

// Reads the big-endian number i in the head of an IDX file.
long long headField(const std::string& idx, std::size_t i) {
    unsigned value = 0;
    for (const char byte : idx.substr(std::min(i * 4, idx.size()), 4))
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

std::vector<Image> readIdx(const std::string& path) {
    const std::string bytes = readFile(path);
    const long long count = headField(bytes, 1), rows = headField(bytes, 2), columns = headField(bytes, 3);
    const bool sane = headField(bytes, 0) == 0x803 && std::max({count, rows, columns}) < 1 << 20 && rows * columns > 0;
    if (!sane || bytes.size() != 16 + static_cast<std::size_t>(count * rows * columns))
        throw std::runtime_error(path + ": not an IDX file of images, or damaged");
    std::vector<Image> images;
    for (long long i = 0; i < count; ++i)
        images.push_back(toImage(rows, columns, bytes, static_cast<std::size_t>(16 + i * rows * columns)));
    return images;
}

Image readPgm(const std::string& path) {
    const std::string bytes = readFile(path);
    std::istringstream head(bytes);
    std::string magic;
    int columns = 0, rows = 0, ink = 0;
    head >> magic >> columns >> rows >> ink;
    const std::size_t start = head ? static_cast<std::size_t>(head.tellg()) + 1 : 0;
    const bool sane = start > 0 && magic == "P5" && ink == 255 && std::min(rows, columns) > 0;
    if (!sane || bytes.size() != start + static_cast<std::size_t>(1LL * rows * columns))
        throw std::runtime_error(path + ": not a binary PGM file of 255 greys, or damaged");
    return toImage(rows, columns, bytes, start);
}

std::vector<float> probabilities(nolk::Runner& runner, Image& image) {
    std::vector<float> result(kDigits);
    nolk::Tensor in{{1, 1, image.rows, image.columns, 3}, image.pixels.data()};
    nolk::Tensor out{{1, kDigits, 1, 1, 1}, result.data()};
    if (!runner.run(&in, 1, &out, 1)) throw std::runtime_error("the model and the images do not fit together");
    return result;
}

long mostLikely(const std::vector<float>& p) { return std::max_element(p.begin(), p.end()) - p.begin(); }

void show(nolk::Runner& runner, Image image) {
    const std::vector<float> p = probabilities(runner, image);
    for (int row = 0; row < image.rows; row += 2) {  // characters are about twice as high as wide
        for (int column = 0; column < image.columns; ++column)
            std::putchar(" .:-=+*#%@"[static_cast<int>(image.pixels[row * image.columns + column] * 9.99f)]);
        std::putchar('\n');
    }
    for (int digit = 0; digit < kDigits; ++digit)
        std::printf("%d: %.4f%s", digit, p[digit], digit % 5 < 4 ? "  " : "\n");
    std::printf("The network reads %ld.\n\n", mostLikely(p));
}

void countRight(nolk::Runner& runner, std::vector<Image>& images, const std::string& path) {
    const std::string labels = readFile(path);
    if (headField(labels, 0) != 0x801 || labels.size() != 8 + images.size())
        throw std::runtime_error(path + ": not the labels of " + std::to_string(images.size()) + " images");
    int right = 0;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < images.size(); ++i)
        right += mostLikely(probabilities(runner, images[i])) == labels[8 + i];
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::printf("%d of %zu right, %.0f images per second\n", right, images.size(), images.size() / seconds.count());
}

}  // namespace

int main(int argc, char** argv) try {
    std::vector<std::string> files(argv + 1, argv + argc);
    if (!files.empty() && files[0] == "--help") return std::fputs(kUsage, stdout) < 0;
    const std::string folder = DIGITS_FOLDER "/";
    if (files.empty()) files = {folder + "digits.cm"};
    if (files.size() == 1) files = {files[0], folder + "test-images.idx", folder + "test-labels.idx"};

    const OwnedRunner runner = loadModel(files[0]);
    if (files.size() == 3 && readFile(files[1]).substr(0, 2) != "P5") {
        std::vector<Image> images = readIdx(files[1]);
        for (std::size_t i = 0; i < std::min<std::size_t>(3, images.size()); ++i) show(*runner, images[i]);
        countRight(*runner, images, files[2]);
    } else {
        for (std::size_t i = 1; i < files.size(); ++i) show(*runner, readPgm(files[i]));
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "digits: %s\n", error.what());
    return 1;
}
