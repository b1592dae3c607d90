// Computes every operation as soon as it is recorded, with plain loops over its formula. Calls nothing of the library.
//   ReferenceBuilder b;  auto* y = b.relu(b.input({1, 1, 1, 2, 3}, {-1, 2}));  b.values(y);  // {0, 2}
// Where the order of single-precision steps is fixed the loops keep it, so results can be compared by bits; products of
// matrices and convolutions are summed in one of many orders. What an operation leaves unwritten is kUnwritten.
// Tensors belong to the builder. Extents must not be negative.
#pragma once

#include <nolk.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <deque>
#include <functional>
#include <numeric>
#include <utility>
#include <vector>

class ReferenceBuilder : public nolk::RunnerBuilder {
public:
    using X = nolk::TensorX*;
    using Shape = nolk::TensorShape;
    using Floats = std::vector<float>;
    static constexpr float kUnwritten = -54321.0f;

    static std::size_t count(const Shape& s) {
        return static_cast<std::size_t>(s.n) * static_cast<std::size_t>(s.c) * static_cast<std::size_t>(s.h) *
               static_cast<std::size_t>(s.w);
    }

    const Floats& values(X x) const { return of(x).values; }
    Shape shapeOf(X x) override { return of(x).shape; }
    nolk::Runner* build(X*, int) override { return nullptr; }
    void destroy() override {}

    X input(Shape shape) override { return input(shape, Floats(count(shape))); }
    X input(Shape shape, Floats values) { return keep({shape, std::move(values)}); }
    X constTensor(nolk::Tensor* t) override { return input(t->shape, {t->data, t->data + count(t->shape)}); }

    X relu(X x) override {
        return map(x, [](float v) { return v < 0 ? 0.0f : v; });
    }
    X abs(X x) override { return map(x, ::fabsf); }
    X exp(X x) override { return map(x, ::expf); }
    X tanh(X x) override { return map(x, ::tanhf); }
    X sigmoid(X x) override { return map(x, logistic); }
    X clip(X x, float min, float max) override {
        return map(x, [=](float v) { return v < min ? min : v > max ? max : v; });
    }
    X leakyRelu(X x, float alpha) override {
        return map(x, [=](float v) { return v < 0 ? v * alpha : v; });
    }
    X hardSigmoid(X x, float alpha, float beta) override {
        return map(x, [=](float v) {
            const float t = std::fma(v, alpha, beta);
            return t < 0 ? 0.0f : t > 1 ? 1.0f : t;
        });
    }
    X prelu(X x, float* slopes, int) override {
        Plain y = of(x);
        const std::size_t run = y.shape.c > 0 ? y.values.size() / static_cast<std::size_t>(y.shape.c) : 0;
        for (std::size_t i = 0; i < y.values.size(); ++i)
            if (y.values[i] < 0) y.values[i] *= slopes[i / run];
        return keep(y);
    }

    X add(X a, X b) override { return combine(a, b, false, std::plus<float>()); }
    X sub(X a, X b) override { return combine(a, b, false, std::minus<float>()); }
    X multiply(X a, X b) override { return combine(a, b, false, std::multiplies<float>()); }
    X divide(X a, X b) override { return combine(a, b, false, std::divides<float>()); }
    X max(X a, X b) override { return combine(a, b, true, larger); }

    X convolve(X input, nolk::Padding p, nolk::DimsHW stride, nolk::DimsHW dilation, nolk::Weights k) override {
        const Plain& x = of(input);
        const int h = positions(x.shape.h + p.top + p.bottom, (k.kernelH - 1) * dilation.h + 1, stride.h);
        const int w = positions(x.shape.w + p.left + p.right, (k.kernelW - 1) * dilation.w + 1, stride.w);
        const Shape kernel{k.groups * k.outChannels, k.inChannels, k.kernelH, k.kernelW, 3};
        return make({x.shape.n, kernel.n, h, w, 3}, [&](int n, int o, int oh, int ow) {
            const int stored = k.shared ? o % k.outChannels : o;
            float sum = k.bias ? k.bias[stored] : 0.0f;
            forEach({1, kernel.c, kernel.h, kernel.w, 3}, [&](int, int i, int kh, int kw) {
                const int row = oh * stride.h - p.top + kh * dilation.h, column = ow * stride.w - p.left;
                sum = std::fma(x.padded(n, o / k.outChannels * k.inChannels + i, row, column + kw * dilation.w),
                               k.weight[at(kernel, stored, i, kh, kw)], sum);
            });
            return sum;
        });
    }

    // One group; scatters the input in the order of its elements and of the kernel's.
    X deConvolve(X input, nolk::Padding p, nolk::DimsHW stride, nolk::DimsHW dilation, nolk::Weights k) override {
        const Plain& x = of(input);
        const Shape& in = x.shape;
        const int h = (k.kernelH - 1) * dilation.h + 1 + (in.h - 1) * stride.h - p.top - p.bottom;
        const int w = (k.kernelW - 1) * dilation.w + 1 + (in.w - 1) * stride.w - p.left - p.right;
        Plain y{{in.n, k.outChannels, h, w, 3}, Floats(count({in.n, k.outChannels, h, w, 3}))};
        const Shape kernel{in.c, k.outChannels, k.kernelH, k.kernelW, 3};
        const int lastRow = h + p.top + p.bottom - k.kernelH, lastColumn = w + p.left + p.right - k.kernelW;
        for (int n = 0; n < in.n && lastRow >= 0 && lastColumn >= 0; ++n)
            forEach({in.c, k.outChannels, in.h, in.w, 3}, [&](int i, int o, int ih, int iw) {
                if (ih * stride.h > lastRow || iw * stride.w > lastColumn) return;
                forEach({1, 1, k.kernelH, k.kernelW, 3}, [&](int, int, int kh, int kw) {
                    const int row = ih * stride.h - p.top + kh, column = iw * stride.w - p.left + kw;
                    if (row < 0 || row >= h || column < 0 || column >= w) return;
                    float& sum = y.values[at(y.shape, n, o, row, column)];
                    sum = std::fma(x.at(n, i, ih, iw), k.weight[at(kernel, i, o, kh, kw)], sum);
                });
            });
        forEach(y.shape, [&](int n, int o, int r, int c) {
            if (k.bias) y.values[at(y.shape, n, o, r, c)] += k.bias[o];
        });
        return keep(y);
    }

    X fullConnect(X input, nolk::Weights k) override {
        const Plain& x = of(input);
        const int length = x.shape.c / k.groups;
        return make({x.shape.n, k.groups * k.outChannels, 1, 1, 1}, [&](int n, int o, int, int) {
            const int row = n * k.groups + o / k.outChannels, out = o % k.outChannels;
            float sum = 0.0f;
            for (int i = 0; i < length; ++i)
                sum += x.values[static_cast<std::size_t>(row * length + i)] * k.weight[out * length + i];
            return k.bias ? sum + k.bias[out] : sum;
        });
    }

    X matMul(X left, X right) override {
        const Plain &a = of(left), &b = of(right);
        return make({a.shape.n, a.shape.c, a.shape.h, b.shape.w, 3}, [&](int n, int c, int row, int column) {
            float sum = 0.0f;
            for (int k = 0; k < a.shape.w; ++k) sum = std::fma(a.at(n, c, row, k), b.at(n, c, k, column), sum);
            return sum;
        });
    }

    // Weights [d, gate, unit, input], bias [d, half, gate, unit]; gates input, output, forget, candidate. Time steps
    // lie inputSize apart, as if there were one channel of as many features.
    X lstm(X input, nolk::LstmWeights k) override {
        const Plain& x = of(input);
        const int d = k.numDirections, hidden = k.hiddenSize, steps = x.shape.h;
        const Shape in{x.shape.n, 1, steps, k.inputSize, 3}, out{x.shape.n, 1, steps, d * hidden, 3};
        const Shape w{d, 4, hidden, k.inputSize, 3}, r{d, 4, hidden, hidden, 3}, b{d, 2, 4, hidden, 3};
        Plain y = unwritten({in.n, x.shape.c, steps, d * hidden, 3});
        forEach({d, in.n, 1, 1, 3}, [&](int dir, int n, int, int) {
            Floats state(static_cast<std::size_t>(hidden)), memory(state.size());
            for (int s = 0; s < steps; ++s) {
                const bool backward = d == 2 ? dir == 1 : k.direction == nolk::Direction::backward;
                const int t = backward ? steps - 1 - s : s;
                Floats next(state.size());
                for (std::size_t j = 0; j < state.size(); ++j) {
                    const int unit = static_cast<int>(j);
                    float gates[4];
                    for (int g = 0; g < 4; ++g) {
                        float& sum = gates[g] = 0.0f;
                        if (k.bias && k.splitBias)
                            sum = k.bias[at(b, dir, 0, g, unit)] + k.bias[at(b, dir, 1, g, unit)];
                        for (int i = 0; i < k.inputSize; ++i)
                            sum += k.inputWeights[at(w, dir, g, unit, i)] * x.values[at(in, n, 0, t, i)];
                        for (int i = 0; i < hidden; ++i)
                            sum += k.recurrentWeights[at(r, dir, g, unit, i)] * state[static_cast<std::size_t>(i)];
                    }
                    memory[j] = logistic(gates[2]) * memory[j] + logistic(gates[0]) * std::tanh(gates[3]);
                    next[j] = logistic(gates[1]) * std::tanh(memory[j]);
                    y.values[at(out, n, 0, t, dir * hidden + unit)] = next[j];
                }
                state = next;
            }
        });
        return keep(y);
    }

    X pad(X input, nolk::Padding p) override {
        const Plain& x = of(input);
        return make({x.shape.n, x.shape.c, x.shape.h + p.top + p.bottom, x.shape.w + p.left + p.right, 3},
                    [&](int n, int c, int h, int w) { return x.padded(n, c, h - p.top, w - p.left); });
    }

    X maxPool(X x, nolk::DimsHW kernel, nolk::Padding p, nolk::DimsHW stride) override {
        return pool(x, kernel, p, stride, [](const Floats& window) {
            float largest = -1.0e37f;
            for (const float v : window) largest = larger(v, largest);
            return largest;
        });
    }
    X avgPool(X x, nolk::DimsHW kernel, nolk::Padding p, nolk::DimsHW stride) override {
        return pool(x, kernel, p, stride, [](const Floats& window) {
            return std::accumulate(window.begin(), window.end(), 0.0f) / static_cast<float>(window.size());
        });
    }

    // Where an axis stands twice, the input's element that comes last stays.
    X transpose(X input, nolk::Perm perm) override {
        const Plain& x = of(input);
        const auto& p = perm.axes;
        const auto extent = [&](int i) { return extentOf(x.shape, p[i]); };
        Plain y = unwritten({extent(0), extent(1), extent(2), extent(3), 3});
        forEach(x.shape, [&](int n, int c, int h, int w) {
            const int i[] = {n, c, h, w};
            y.values[at(y.shape, i[p[0]], i[p[1]], i[p[2]], i[p[3]])] = x.at(n, c, h, w);
        });
        return keep(y);
    }

    X reshape(X x, Shape shape, nolk::TensorLayout layout) override {
        Floats values = of(layout == nolk::TensorLayout::nhwc ? transpose(x, {{0, 2, 3, 1}}) : x).values;
        values.resize(count(shape), kUnwritten);
        return input(shape, values);
    }

    // The extent is rounded down, but all elements below the end are taken: what exceeds a row, plane or sample goes
    // where the next one begins, and is overwritten by it.
    X slice(X input, nolk::SlicePos pos) override {
        const Plain& x = of(input);
        if (pos.axis < 0) pos.axis += 4;
        const int start = std::max(pos.start, 0), end = std::min(pos.end, extentOf(x.shape, pos.axis));
        Shape shape = x.shape;
        extentOf(shape, pos.axis) = (end - start) / pos.step;
        if (shape.dims == 1) shape.h = shape.w = 1;
        Plain y = unwritten(shape);
        forEach(x.shape, [&](int n, int c, int h, int w) {
            int to[] = {n, c, h, w};
            int& index = to[pos.axis];
            if (index < start || index >= end || (index - start) % pos.step != 0) return;
            index = (index - start) / pos.step;
            const std::size_t place = at(y.shape, to[0], to[1], to[2], to[3]);
            if (place < y.values.size()) y.values[place] = x.at(n, c, h, w);
        });
        return keep(y);
    }

    X concat(X* inputs, int number, nolk::Axis axis) override {
        const int index = static_cast<int>(axis) < 0 ? static_cast<int>(axis) + 4 : static_cast<int>(axis);
        Shape shape = of(inputs[0]).shape;
        for (int i = 1; i < number; ++i) extentOf(shape, index) += extentOf(of(inputs[i]).shape, index);
        Plain y = unwritten(shape);
        for (int i = 0, before = 0; i < number; before += extentOf(of(inputs[i++]).shape, index)) {
            const Plain& x = of(inputs[i]);
            forEach(x.shape, [&](int n, int c, int h, int w) {
                int to[] = {n, c, h, w};
                to[index] += before;
                y.values[at(y.shape, to[0], to[1], to[2], to[3])] = x.at(n, c, h, w);
            });
        }
        return keep(y);
    }

    X batchNormalize(X input, nolk::Vector scale, nolk::Vector bias, nolk::Vector mean, nolk::Vector variance,
                     float epsilon) override {
        const Plain& x = of(input);
        return make(x.shape, [&](int n, int c, int h, int w) {
            const float deviation = std::sqrt(variance.data[c] + epsilon);
            return ((x.at(n, c, h, w) - mean.data[c]) * scale.data[c]) / deviation + bias.data[c];
        });
    }

    X instanceNormalization(X x, float epsilon) override {
        const int channels = of(x).shape.c;
        Floats ones(static_cast<std::size_t>(channels), 1.0f), zeros(ones.size());
        return instanceNormalization(x, {channels, ones.data()}, {channels, zeros.data()}, epsilon);
    }
    X instanceNormalization(X x, nolk::Vector scale, nolk::Vector bias, float epsilon) override {
        return lines(x, 2, 3, of(x).shape, [=](Floats plane, bool, int number) {
            const int c = number % of(x).shape.c;
            const auto size = static_cast<float>(plane.size());
            float mean = 0.0f, variance = 0.0f;
            for (const float v : plane) mean += v;
            mean /= size;
            for (const float v : plane) variance = std::fma(v - mean, v - mean, variance);
            const float factor = scale.data[c] / std::sqrt(variance / size + epsilon);
            const float addend = std::fma(-mean, factor, bias.data[c]);
            for (float& v : plane) v = std::fma(v, factor, addend);
            return plane;
        });
    }

    X l2normalize(X x) override {
        return lines(x, 1, 1, of(x).shape, [](Floats line, bool, int) {
            float sum = 0.0f;
            for (const float v : line) sum = std::fma(v, v, sum);
            for (float& v : line) v /= std::sqrt(sum);
            return line;
        });
    }

    X softmax(X x, nolk::Axis axis) override {
        const int a = static_cast<int>(axis);
        return lines(x, a, a, of(x).shape, [](Floats line, bool, int) {
            float largest = line.empty() ? 0.0f : line[0], sum = 0.0f;
            for (const float v : line) largest = larger(v, largest);
            for (float& v : line) sum += v = std::exp(v - largest);
            for (float& v : line) v /= sum;
            return line;
        });
    }

    // By accumulators that start as NaN, or plane by plane where only c is reduced.
    X reduce(X input, Shape shape, nolk::BasicOp op) override {
        const Plain& x = of(input);
        const Shape& in = x.shape;
        const bool planes = shape.c != in.c && shape.h == in.h && shape.w == in.w;
        Plain y{shape, Floats(count(shape), std::nanf(""))};
        forEach(in, [&](int n, int c, int h, int w) {
            const float v = x.at(n, c, h, w);
            float& acc = y.values[at(shape, n, shape.c == 1 ? 0 : c, shape.h == 1 ? 0 : h, shape.w == 1 ? 0 : w)];
            const bool isFirst = planes ? c == 0 : std::isnan(acc);
            const bool replaces = op == nolk::BasicOp::maximum ? v > acc : op == nolk::BasicOp::minimum && v < acc;
            const bool isSum = op == nolk::BasicOp::mean || op == nolk::BasicOp::sum;
            acc = isFirst || replaces ? v : isSum ? v + acc : acc;
        });
        const int taken = (shape.c == 1 ? in.c : 1) * (shape.h == 1 ? in.h : 1) * (shape.w == 1 ? in.w : 1);
        if (op == nolk::BasicOp::mean)
            for (float& v : y.values)
                v = planes ? v * (1.0f / static_cast<float>(in.c)) : v / static_cast<float>(taken);
        return keep(y);
    }

    X resize(X input, Shape out, nolk::ResizeMode mode, nolk::ResizeTransMode transMode) override {
        const Plain& x = of(input);
        const Shape& in = x.shape;
        if (mode == nolk::ResizeMode::nearest)
            return make(out, [&](int n, int c, int h, int w) {
                const int row = static_cast<int>(h * (static_cast<double>(in.h) / out.h));
                const int column = static_cast<int>(w * (static_cast<double>(in.w) / out.w));
                return x.at(n, c, std::min(row, in.h - 1), std::min(column, in.w - 1));
            });
        const bool halfPixel = transMode == nolk::ResizeTransMode::halfPixel;
        return make(out, [&](int n, int c, int h, int w) {
            if (in.h == 1 && in.w == 1) return x.at(n, c, 0, 0);
            const Source row = sourceOf(h, in.h, out.h, halfPixel), column = sourceOf(w, in.w, out.w, halfPixel);
            // What lies in front of a single row or column does not exist, and counts as 0 by its weight.
            const auto across = [&](int r) {
                return column.weight * x.padded(n, c, r, column.index) +
                       column.weightBehind * x.padded(n, c, r, column.index + 1);
            };
            return row.weight * (row.index < 0 ? 0.0f : across(row.index)) + row.weightBehind * across(row.index + 1);
        });
    }

protected:
    struct Plain {
        Shape shape;
        Floats values;

        float at(int n, int c, int h, int w) const { return values[ReferenceBuilder::at(shape, n, c, h, w)]; }
        // 0 outside the plane.
        float padded(int n, int c, int h, int w) const {
            return h < 0 || h >= shape.h || w < 0 || w >= shape.w ? 0.0f : at(n, c, h, w);
        }
    };

    // Where an output index of a bilinear resize falls: the source index and the weights of the values there and
    // behind.
    struct Source {
        int index;
        float weight, weightBehind;
    };

    static Source sourceOf(int d, int in, int out, bool halfPixel) {
        double f = 0.0;
        if (halfPixel)
            f = static_cast<double>(in) / out * (d + 0.5) - 0.5;
        else if (out > 1)
            f = d * ((in - 1.0) / (out - 1.0));
        const auto narrow = static_cast<float>(f);
        float s = std::floor(narrow), fraction = narrow - s;
        if (s < 0.0f) s = fraction = 0.0f;
        if (s >= static_cast<float>(in - 1)) return {in - 2, 0.0f, 1.0f};
        return {static_cast<int>(s), 1.0f - fraction, fraction};
    }

    static float larger(float a, float b) { return a > b ? a : b; }
    static float logistic(float v) { return 1.0f / (std::exp(-v) + 1.0f); }
    static int positions(int extent, int window, int stride) {
        return stride == 0 ? 1 : (extent - window) / stride + 1;
    }

    static std::size_t at(const Shape& s, int n, int c, int h, int w) {
        return static_cast<std::size_t>(((static_cast<long>(n) * s.c + c) * s.h + h) * s.w + w);
    }
    static int& extentOf(Shape& s, int axis) { return axis == 0 ? s.n : axis == 1 ? s.c : axis == 2 ? s.h : s.w; }
    static int extentOf(const Shape& s, int axis) { return extentOf(const_cast<Shape&>(s), axis); }

    // Calls f(n, c, h, w) for every index of s, w fastest.
    template <typename Function>
    static void forEach(const Shape& s, Function f) {
        for (int n = 0; n < s.n; ++n)
            for (int c = 0; c < s.c; ++c)
                for (int h = 0; h < s.h; ++h)
                    for (int w = 0; w < s.w; ++w) f(n, c, h, w);
    }

    static Plain unwritten(const Shape& s) { return {s, Floats(count(s), kUnwritten)}; }
    const Plain& of(X x) const { return *reinterpret_cast<const Plain*>(x); }
    X keep(Plain p) { return reinterpret_cast<X>(&tensors_.emplace_back(std::move(p))); }

    // A tensor of the shape whose element at every position is f(n, c, h, w).
    template <typename Function>
    X make(const Shape& shape, Function f) {
        Floats values;
        forEach(shape, [&](int n, int c, int h, int w) { values.push_back(f(n, c, h, w)); });
        return input(shape, values);
    }

    // A tensor of the lines f(line, are its elements neighbours, its number); a line has the elements along these axes.
    template <typename Function>
    X lines(X input, int first, int last, const Shape& out, Function f) {
        const Plain& x = of(input);
        std::size_t outer = 1, length = 1, inner = 1;
        for (int axis = 0; axis < 4; ++axis)
            (axis < first ? outer : axis > last ? inner : length) *= static_cast<std::size_t>(extentOf(x.shape, axis));
        Floats y(count(out));
        for (std::size_t o = 0; o < outer; ++o)
            for (std::size_t i = 0; i < inner; ++i) {
                Floats line;
                for (std::size_t k = 0; k < length; ++k) line.push_back(x.values[(o * length + k) * inner + i]);
                line = f(line, inner == 1, static_cast<int>(o));
                for (std::size_t k = 0; k < line.size(); ++k) y[(o * line.size() + k) * inner + i] = line[k];
            }
        return keep({out, std::move(y)});
    }

    template <typename Function>
    X map(X x, Function f) {
        Plain y = of(x);
        for (float& v : y.values) v = f(v);
        return keep(y);
    }

    // b's element where it has an extent of 1 at c, h or w; 0 where it has no element. Only the maximum finds several
    // channels of b that are not as many as a's; otherwise one plane a sample is taken.
    template <typename Function>
    X combine(X left, X right, bool isMax, Function f) {
        const Plain &a = of(left), &b = of(right);
        const bool onePlane = !isMax && b.shape.c != a.shape.c && b.shape.h == a.shape.h && b.shape.w == a.shape.w;
        return make(a.shape, [&](int n, int c, int h, int w) {
            const int channel = onePlane ? n : n * b.shape.c + (b.shape.c == 1 ? 0 : c);
            const std::size_t place = at(b.shape, 0, channel, b.shape.h == 1 ? 0 : h, b.shape.w == 1 ? 0 : w);
            return f(a.at(n, c, h, w), place < b.values.size() ? b.values[place] : 0.0f);
        });
    }

    template <typename Function>
    X pool(X input, nolk::DimsHW kernel, nolk::Padding p, nolk::DimsHW stride, Function f) {
        const Plain& x = of(input);
        const Shape& s = x.shape;
        const int h = positions(s.h + p.top + p.bottom, kernel.h, stride.h);
        const int w = positions(s.w + p.left + p.right, kernel.w, stride.w);
        return make({s.n, s.c, h, w, 3}, [&](int n, int c, int oh, int ow) {
            Floats window;
            forEach({1, 1, kernel.h, kernel.w, 3}, [&](int, int, int kh, int kw) {
                const int row = oh * stride.h - p.top + kh, column = ow * stride.w - p.left + kw;
                if (row >= 0 && row < s.h && column >= 0 && column < s.w) window.push_back(x.at(n, c, row, column));
            });
            return f(window);
        });
    }

    std::deque<Plain> tensors_;
};
