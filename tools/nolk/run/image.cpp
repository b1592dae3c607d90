#include "nolk/run/image.h"

#include <cctype>
#include <cstddef>
#include <cstdint>

#include "nolk/model/InputFile.h"

namespace {

struct Head {
    int channels, columns, rows, maximum;
};

// The next number of the head, behind blanks and comments. Takes the byte after it too, which has to be a blank.
int readNumber(InputFile& file) {
    int c = file.get();
    while (c == '#' || std::isspace(c)) {
        if (c == '#')
            while (c != '\n' && c != -1) c = file.get();
        c = file.get();
    }
    int number = 0, digits = 0;
    for (; std::isdigit(c); c = file.get()) {
        if (++digits > 9) file.fail("damaged image: a number of the head has more than 9 digits");
        number = number * 10 + (c - '0');
    }
    if (digits == 0 || !std::isspace(c)) file.fail("damaged image: the head does not hold three numbers");
    return number;
}

Head readHead(InputFile& file) {
    const int p = file.get(), kind = file.get();
    if (p != 'P' || (kind != '5' && kind != '6')) file.fail("not a binary PGM or PPM image");
    Head head{kind == '5' ? 1 : 3, 0, 0, 0};
    head.columns = readNumber(file);
    head.rows = readNumber(file);
    head.maximum = readNumber(file);
    if (head.maximum < 1 || head.maximum > 65535)
        file.fail("damaged image: maximum " + std::to_string(head.maximum) + ", expected 1 to 65535");
    return head;
}

std::string extentsText(int channels, int rows, int columns) {
    return "[" + std::to_string(channels) + ", " + std::to_string(rows) + ", " + std::to_string(columns) + "]";
}

void checkHead(const InputFile& file, const Head& head, const nolk::TensorShape& expected, const PixelRule& rule) {
    if (head.channels != expected.c || head.rows != expected.h || head.columns != expected.w)
        file.fail("image of " + extentsText(head.channels, head.rows, head.columns) + ", expected " +
                  extentsText(expected.c, expected.h, expected.w) + " (channels, rows, columns)");
    const std::size_t means = rule.mean.size();
    if (means != 1 && means != static_cast<std::size_t>(head.channels))
        file.fail(std::to_string(means) + " means, expected 1" + (head.channels > 1 ? " or 3" : ""));
    const std::int64_t bytes =
        static_cast<std::int64_t>(head.channels) * head.rows * head.columns * (head.maximum > 255 ? 2 : 1);
    if (file.left() != bytes)
        file.fail(std::to_string(file.left()) + " bytes of pixels, expected " + std::to_string(bytes));
}

}  // namespace

void readImage(const std::string& path, const nolk::TensorShape& expected, const PixelRule& rule, float* values) {
    InputFile file(path);
    const Head head = readHead(file);
    checkHead(file, head, expected, rule);
    const std::ptrdiff_t plane = static_cast<std::ptrdiff_t>(head.rows) * head.columns;
    for (std::ptrdiff_t i = 0; i < plane; ++i)
        for (int c = 0; c < head.channels; ++c) {
            int pixel = file.get();
            if (head.maximum > 255) pixel = pixel << 8 | file.get();
            const double mean = rule.mean[rule.mean.size() == 1 ? 0 : static_cast<std::size_t>(c)];
            values[c * plane + i] = static_cast<float>((pixel - mean) * rule.scale);
        }
}
