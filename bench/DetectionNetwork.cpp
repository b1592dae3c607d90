#include "DetectionNetwork.h"

#include <deque>

#include "compare.h"
#include "inspect/ModelWriterImpl.h"

namespace {

using nolk::TensorX;

// Each method records operations with the next random weights.
class Recorder {
public:
    TensorX* input(const nolk::TensorShape& shape) { return writer_.input(shape); }

    // A convolution and its activation, x * sigmoid(x).
    TensorX* conv(TensorX* x, int channels, int kernel, int stride) {
        TensorX* const y = plainConv(x, channels, kernel, stride);
        return writer_.multiply(y, writer_.sigmoid(y));
    }

    TensorX* plainConv(TensorX* x, int channels, int kernel, int stride) {
        const int p = kernel / 2, in = writer_.shapeOf(x).c;
        return writer_.convolve(
            x, {p, p, p, p}, {stride, stride}, {1, 1},
            {1, channels, in, kernel, kernel, false, floats(channels * in * kernel * kernel), floats(channels)});
    }

    // Concatenates two branches, one of them with `depth` residual blocks.
    TensorX* stage(TensorX* x, int channels, int depth) {
        TensorX* const beside = conv(x, channels / 2, 1, 1);
        TensorX* y = conv(x, channels / 2, 1, 1);
        for (int i = 0; i < depth; ++i) y = writer_.add(y, conv(conv(y, channels / 2, 1, 1), channels / 2, 3, 1));
        return conv(join(y, beside), channels, 1, 1);
    }

    TensorX* join(TensorX* a, TensorX* b) {
        TensorX* both[] = {a, b};
        return writer_.concat(both, 2, nolk::Axis::c);
    }

    TensorX* pool(TensorX* x) { return writer_.maxPool(x, {5, 5}, {2, 2, 2, 2}, {1, 1}); }

    TensorX* enlarge(TensorX* x) {
        const nolk::TensorShape s = writer_.shapeOf(x);
        return writer_.resize(x, {s.n, s.c, 2 * s.h, 2 * s.w, 3}, nolk::ResizeMode::nearest,
                              nolk::ResizeTransMode::halfPixel);
    }

    // Boxes, scores and classes of one scale, channel-last.
    void head(TensorX* x) {
        for (const int channels : {4, 1, 20}) {
            TensorX* const y = conv(conv(x, 24, 3, 1), 24, 3, 1);
            outputs_.push_back(writer_.transpose(writer_.sigmoid(plainConv(y, channels, 1, 1)), {{0, 2, 3, 1}}));
        }
    }

    std::vector<unsigned char> file() {
        writer_.build(outputs_.data(), static_cast<int>(outputs_.size()));
        return writer_.bytes();
    }

private:
    float* floats(int count) {
        weights_.push_back(randomFloats(static_cast<std::size_t>(count)));
        return weights_.back().data();
    }

    ModelWriterImpl writer_;
    std::deque<std::vector<float>> weights_;
    std::vector<TensorX*> outputs_;
};

}  // namespace

std::vector<unsigned char> detectionNetwork() {
    Recorder net;
    TensorX* x = net.conv(net.input({1, 3, 640, 1024, 3}), 16, 3, 2);
    x = net.stage(net.conv(x, 32, 3, 2), 32, 1);
    TensorX* const fine = net.stage(net.conv(x, 64, 3, 2), 64, 3);
    TensorX* const middle = net.stage(net.conv(fine, 128, 3, 2), 128, 3);
    x = net.stage(net.conv(middle, 128, 3, 2), 128, 1);
    TensorX* const once = net.pool(x);
    TensorX* const twice = net.pool(once);
    TensorX* const coarse = net.conv(net.join(net.join(x, once), net.join(twice, net.pool(twice))), 128, 1, 1);
    TensorX* const up = net.stage(net.join(net.enlarge(coarse), middle), 128, 1);
    TensorX* const reduced = net.conv(up, 64, 1, 1);
    TensorX* const small = net.stage(net.join(net.enlarge(reduced), fine), 64, 1);
    TensorX* const medium = net.stage(net.join(net.conv(small, 64, 3, 2), reduced), 128, 1);
    TensorX* const large = net.stage(net.join(net.conv(medium, 128, 3, 2), coarse), 128, 1);
    for (TensorX* const scale : {small, medium, large}) net.head(scale);
    return net.file();
}
