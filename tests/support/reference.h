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

}  // namespace reference
