// What the operations compute, as plain loops over the formulas. They call nothing of the library; sums run in the
// order that fixes a result to the bit. Tensors are vectors in the order [n, c, h, w].
#pragma once

#include <nolk.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace reference {

using Floats = std::vector<float>;

inline std::size_t count(const nolk::TensorShape& s) {
    return static_cast<std::size_t>(s.n) * static_cast<std::size_t>(s.c) * static_cast<std::size_t>(s.h) *
           static_cast<std::size_t>(s.w);
}

inline std::size_t at(const nolk::TensorShape& s, int n, int c, int h, int w) {
    return static_cast<std::size_t>(((static_cast<long>(n) * s.c + c) * s.h + h) * s.w + w);
}

// Calls f(n, c, h, w) for every index of s, w fastest.
template <typename Function>
void forEachIndex(const nolk::TensorShape& s, Function f) {
    for (int n = 0; n < s.n; ++n)
        for (int c = 0; c < s.c; ++c)
            for (int h = 0; h < s.h; ++h)
                for (int w = 0; w < s.w; ++w) f(n, c, h, w);
}

inline Floats transpose(const nolk::TensorShape& in, const Floats& x, const nolk::Perm& perm) {
    const int extents[] = {in.n, in.c, in.h, in.w};
    const auto& p = perm.axes;
    const nolk::TensorShape out{extents[p[0]], extents[p[1]], extents[p[2]], extents[p[3]], 3};
    Floats y(count(out));
    forEachIndex(in, [&](int n, int c, int h, int w) {
        const int i[] = {n, c, h, w};
        y[at(out, i[p[0]], i[p[1]], i[p[2]], i[p[3]])] = x[at(in, n, c, h, w)];
    });
    return y;
}

// The inputs' extents agree off the axis, 0 to 3.
inline Floats concat(const std::vector<nolk::TensorShape>& in, const std::vector<Floats>& x, int axis,
                     const nolk::TensorShape& out) {
    Floats y(count(out));
    int before = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        forEachIndex(in[i], [&](int n, int c, int h, int w) {
            int to[] = {n, c, h, w};
            to[axis] += before;
            y[at(out, to[0], to[1], to[2], to[3])] = x[i][at(in[i], n, c, h, w)];
        });
        const int extents[] = {in[i].n, in[i].c, in[i].h, in[i].w};
        before += extents[axis];
    }
    return y;
}

// pos is normalised, its step positive. What falls behind the output is dropped.
inline Floats slice(const nolk::TensorShape& in, const Floats& x, const nolk::SlicePos& pos,
                    const nolk::TensorShape& out) {
    Floats y(count(out));
    forEachIndex(in, [&](int n, int c, int h, int w) {
        int to[] = {n, c, h, w};
        int& index = to[pos.axis];
        if (index < pos.start || index >= pos.end || (index - pos.start) % pos.step != 0) return;
        index = (index - pos.start) / pos.step;
        const std::size_t place = at(out, to[0], to[1], to[2], to[3]);
        if (place < y.size()) y[place] = x[at(in, n, c, h, w)];
    });
    return y;
}

// axis 1 = c, 2 = h, 3 = w.
inline Floats softmax(const nolk::TensorShape& s, const Floats& x, int axis) {
    Floats y(x.size());
    const int extents[] = {s.n, s.c, s.h, s.w};
    forEachIndex(s, [&](int n, int c, int h, int w) {
        int i[] = {n, c, h, w};
        if (i[axis] != 0) return;
        const auto place = [&](int k) {
            i[axis] = k;
            return at(s, i[0], i[1], i[2], i[3]);
        };
        float largest = x[place(0)], sum = 0.0f;
        for (int k = 1; k < extents[axis]; ++k)
            if (x[place(k)] > largest) largest = x[place(k)];
        for (int k = 0; k < extents[axis]; ++k) sum += y[place(k)] = std::exp(x[place(k)] - largest);
        for (int k = 0; k < extents[axis]; ++k) y[place(k)] /= sum;
    });
    return y;
}

inline Floats instanceNormalize(const nolk::TensorShape& s, const Floats& x, const Floats& scale, const Floats& bias,
                                float epsilon) {
    Floats y(x.size());
    const nolk::TensorShape plane{1, 1, s.h, s.w, 3};
    for (int n = 0; n < s.n; ++n)
        for (int c = 0; c < s.c; ++c) {
            const auto channel = static_cast<std::size_t>(c);
            const auto size = static_cast<float>(count(plane));
            float mean = 0.0f, variance = 0.0f;
            forEachIndex(plane, [&](int, int, int h, int w) { mean += x[at(s, n, c, h, w)]; });
            mean /= size;
            forEachIndex(plane, [&](int, int, int h, int w) {
                const float d = x[at(s, n, c, h, w)] - mean;
                variance = std::fma(d, d, variance);
            });
            variance /= size;
            const float k = scale[channel] / std::sqrt(variance + epsilon);
            const float t = std::fma(-mean, k, bias[channel]);
            forEachIndex(plane,
                         [&](int, int, int h, int w) { y[at(s, n, c, h, w)] = std::fma(x[at(s, n, c, h, w)], k, t); });
        }
    return y;
}

inline Floats l2normalize(const nolk::TensorShape& s, const Floats& x) {
    Floats y(x.size());
    forEachIndex(s, [&](int n, int c, int h, int w) {
        float sum = 0.0f;
        for (int k = 0; k < s.c; ++k) sum = std::fma(x[at(s, n, k, h, w)], x[at(s, n, k, h, w)], sum);
        y[at(s, n, c, h, w)] = x[at(s, n, c, h, w)] / std::sqrt(sum);
    });
    return y;
}

// By way of accumulators that start as NaN, or plane by plane where only c is reduced.
inline Floats reduce(const nolk::TensorShape& in, const Floats& x, const nolk::TensorShape& out, nolk::BasicOp op) {
    const bool planes = out.c != in.c && out.h == in.h && out.w == in.w;
    Floats y(count(out), std::nanf(""));
    forEachIndex(in, [&](int n, int c, int h, int w) {
        float& acc = y[at(out, n, out.c == 1 ? 0 : c, out.h == 1 ? 0 : h, out.w == 1 ? 0 : w)];
        const float v = x[at(in, n, c, h, w)];
        if (planes ? c == 0 : std::isnan(acc))
            acc = v;
        else if (op == nolk::BasicOp::maximum)
            acc = v > acc ? v : acc;
        else if (op == nolk::BasicOp::minimum)
            acc = v < acc ? v : acc;
        else
            acc = v + acc;
    });
    const int taken = (out.c == 1 ? in.c : 1) * (out.h == 1 ? in.h : 1) * (out.w == 1 ? in.w : 1);
    if (op == nolk::BasicOp::mean)
        for (float& v : y) v = planes ? v * (1.0f / static_cast<float>(in.c)) : v / static_cast<float>(taken);
    return y;
}

inline Floats matMul(const nolk::TensorShape& a, const Floats& x, const nolk::TensorShape& b, const Floats& y) {
    const nolk::TensorShape out{a.n, a.c, a.h, b.w, 3};
    Floats z(count(out));
    forEachIndex(out, [&](int n, int c, int r, int j) {
        float& acc = z[at(out, n, c, r, j)];
        for (int k = 0; k < a.w; ++k) acc = std::fma(x[at(a, n, c, r, k)], y[at(b, n, c, k, j)], acc);
    });
    return z;
}

// Where an output index of a bilinear resize falls: the source index and the weights of the values there and behind.
struct Source {
    int index;
    float weight, weightBehind;
};

inline Source sourceOf(int d, int in, int out, bool halfPixel) {
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

// Samples and channels of in and out agree.
inline Floats resizeLinear(const nolk::TensorShape& in, const Floats& x, const nolk::TensorShape& out, bool halfPixel) {
    Floats y(count(out));
    forEachIndex(out, [&](int n, int c, int h, int w) {
        const Source row = sourceOf(h, in.h, out.h, halfPixel), column = sourceOf(w, in.w, out.w, halfPixel);
        // A value in front of a single one does not exist, and counts as 0 by its weight.
        const auto value = [&](int r, int k) { return k < 0 ? 0.0f : x[at(in, n, c, r, k)]; };
        const auto across = [&](int r) {
            if (r < 0) return 0.0f;
            return column.weight * value(r, column.index) + column.weightBehind * value(r, column.index + 1);
        };
        y[at(out, n, c, h, w)] = in.h == 1 && in.w == 1
                                     ? x[at(in, n, c, 0, 0)]
                                     : row.weight * across(row.index) + row.weightBehind * across(row.index + 1);
    });
    return y;
}

inline Floats resizeNearest(const nolk::TensorShape& in, const Floats& x, const nolk::TensorShape& out) {
    Floats y(count(out));
    const double scaleH = static_cast<double>(in.h) / out.h, scaleW = static_cast<double>(in.w) / out.w;
    forEachIndex(out, [&](int n, int c, int h, int w) {
        const int row = static_cast<int>(h * scaleH), column = static_cast<int>(w * scaleW);
        y[at(out, n, c, h, w)] = x[at(in, n, c, row < in.h ? row : in.h - 1, column < in.w ? column : in.w - 1)];
    });
    return y;
}

// One channel. Weights [d, gate, unit, input], bias [d, half, gate, unit] or empty; gates input, output, forget,
// candidate.
inline Floats lstm(const nolk::TensorShape& in, const Floats& x, const nolk::LstmWeights& weights) {
    const int d = weights.numDirections, hidden = weights.hiddenSize, inputs = weights.inputSize;
    const nolk::TensorShape out{in.n, 1, in.h, d * hidden, 3};
    const nolk::TensorShape w{d, 4, hidden, inputs, 3}, r{d, 4, hidden, hidden, 3}, b{d, 2, 4, hidden, 3};
    const auto sigmoid = [](float v) { return 1.0f / (std::exp(-v) + 1.0f); };
    Floats y(count(out));
    for (int k = 0; k < d; ++k)
        for (int n = 0; n < in.n; ++n) {
            Floats state(static_cast<std::size_t>(hidden)), memory(static_cast<std::size_t>(hidden));
            for (int s = 0; s < in.h; ++s) {
                const bool backward = d == 2 ? k == 1 : weights.direction == nolk::Direction::backward;
                const int t = backward ? in.h - 1 - s : s;
                Floats next(state.size());
                for (int j = 0; j < hidden; ++j) {
                    const auto unit = static_cast<std::size_t>(j);
                    float a[4];
                    for (int g = 0; g < 4; ++g) {
                        const bool bias = weights.bias && weights.splitBias;
                        a[g] = bias ? weights.bias[at(b, k, 0, g, j)] + weights.bias[at(b, k, 1, g, j)] : 0.0f;
                        for (int i = 0; i < inputs; ++i)
                            a[g] += weights.inputWeights[at(w, k, g, j, i)] * x[at(in, n, 0, t, i)];
                        for (int i = 0; i < hidden; ++i)
                            a[g] += weights.recurrentWeights[at(r, k, g, j, i)] * state[static_cast<std::size_t>(i)];
                    }
                    memory[unit] = sigmoid(a[2]) * memory[unit] + sigmoid(a[0]) * std::tanh(a[3]);
                    next[unit] = sigmoid(a[1]) * std::tanh(memory[unit]);
                    y[at(out, n, 0, t, k * hidden + j)] = next[unit];
                }
                state = next;
            }
        }
    return y;
}

// One group; scatters the inputs in the order i, o, ih, iw, kernel position.
inline Floats deConvolve(const nolk::TensorShape& in, const Floats& x, const nolk::Padding& padding,
                         const nolk::DimsHW& stride, const nolk::Weights& w, const nolk::TensorShape& out) {
    Floats y(count(out));
    const nolk::TensorShape weights{in.c, out.c, w.kernelH, w.kernelW, 3};
    const int lastRow = out.h + padding.top + padding.bottom - w.kernelH;
    const int lastColumn = out.w + padding.left + padding.right - w.kernelW;
    for (int n = 0; n < in.n; ++n)
        forEachIndex({in.c, out.c, in.h, in.w, 3}, [&](int i, int o, int ih, int iw) {
            if (lastRow < 0 || lastColumn < 0 || ih * stride.h > lastRow || iw * stride.w > lastColumn) return;
            for (int kh = 0; kh < w.kernelH; ++kh)
                for (int kw = 0; kw < w.kernelW; ++kw) {
                    const int oh = ih * stride.h - padding.top + kh, ow = iw * stride.w - padding.left + kw;
                    if (oh < 0 || oh >= out.h || ow < 0 || ow >= out.w) continue;
                    float& acc = y[at(out, n, o, oh, ow)];
                    acc = std::fma(x[at(in, n, i, ih, iw)], w.weight[at(weights, i, o, kh, kw)], acc);
                }
        });
    if (w.bias) forEachIndex(out, [&](int n, int o, int h, int k) { y[at(out, n, o, h, k)] += w.bias[o]; });
    return y;
}

}  // namespace reference
