// The operations as plain loops over whole tensors, written from their formulas and calling nothing of the library.
// Where the order of single-precision steps is fixed, these keep it, so results can be compared by bits.
#pragma once

#include <nolk.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace plain {

struct Plain {
    nolk::TensorShape shape;
    std::vector<float> values;

    float at(int n, int c, int h, int w) const {
        return values[((static_cast<std::size_t>(n) * shape.c + c) * shape.h + h) * shape.w + w];
    }
    // 0 outside the plane.
    float padded(int n, int c, int h, int w) const {
        return h < 0 || h >= shape.h || w < 0 || w >= shape.w ? 0.0f : at(n, c, h, w);
    }
};

// A tensor of the shape whose element at every position is f(n, c, h, w).
template <typename Function>
Plain make(nolk::TensorShape shape, Function f) {
    Plain result{shape, {}};
    for (int n = 0; n < shape.n; ++n)
        for (int c = 0; c < shape.c; ++c)
            for (int h = 0; h < shape.h; ++h)
                for (int w = 0; w < shape.w; ++w) result.values.push_back(f(n, c, h, w));
    return result;
}

inline Plain convolve(const Plain& x, nolk::Padding p, nolk::DimsHW stride, nolk::DimsHW dilation,
                      const nolk::Weights& k) {
    const int oh = (x.shape.h + p.top + p.bottom - ((k.kernelH - 1) * dilation.h + 1)) / stride.h + 1;
    const int ow = (x.shape.w + p.left + p.right - ((k.kernelW - 1) * dilation.w + 1)) / stride.w + 1;
    return make({x.shape.n, k.groups * k.outChannels, oh, ow, 3}, [&](int n, int o, int h, int w) {
        const int group = o / k.outChannels;
        const int stored = k.shared ? o % k.outChannels : o;
        float sum = k.bias ? k.bias[stored] : 0.0f;
        for (int i = 0; i < k.inChannels; ++i)
            for (int kh = 0; kh < k.kernelH; ++kh)
                for (int kw = 0; kw < k.kernelW; ++kw)
                    sum = std::fma(x.padded(n, group * k.inChannels + i, h * stride.h - p.top + kh * dilation.h,
                                            w * stride.w - p.left + kw * dilation.w),
                                   k.weight[((stored * k.inChannels + i) * k.kernelH + kh) * k.kernelW + kw], sum);
        return sum;
    });
}

inline Plain pad(const Plain& x, nolk::Padding p) {
    return make({x.shape.n, x.shape.c, x.shape.h + p.top + p.bottom, x.shape.w + p.left + p.right, 3},
                [&](int n, int c, int h, int w) { return x.padded(n, c, h - p.top, w - p.left); });
}

inline Plain pool(const Plain& x, PoolingType type, nolk::DimsHW kernel, nolk::Padding p, nolk::DimsHW stride) {
    const int oh = (x.shape.h + p.top + p.bottom - kernel.h) / stride.h + 1;
    const int ow = (x.shape.w + p.left + p.right - kernel.w) / stride.w + 1;
    return make({x.shape.n, x.shape.c, oh, ow, 3}, [&](int n, int c, int h, int w) {
        float max = -1.0e37f, sum = 0.0f, count = 0.0f;
        for (int kh = 0; kh < kernel.h; ++kh)
            for (int kw = 0; kw < kernel.w; ++kw) {
                const int ih = h * stride.h - p.top + kh, iw = w * stride.w - p.left + kw;
                if (ih < 0 || ih >= x.shape.h || iw < 0 || iw >= x.shape.w) continue;
                const float value = x.at(n, c, ih, iw);
                if (value > max) max = value;
                sum += value;
                count += 1.0f;
            }
        return type == POOL_AVG ? sum / count : max;
    });
}

inline Plain activate(const Plain& x, ActivateType type, float p0, float p1, const std::vector<float>& slopes = {}) {
    std::size_t i = 0;
    return make(x.shape, [&](int, int, int, int) {
        const std::size_t index = i++;
        const float v = x.values[index];
        switch (type) {
            case ACT_RELU:
                return v < 0 ? 0.0f : v;
            case ACT_SIGMOID:
                return 1.0f / (std::exp(-v) + 1.0f);
            case ACT_EXP:
                return std::exp(v);
            case ACT_CLIP:
                return v < p0 ? p0 : v > p1 ? p1 : v;
            case ACT_HARD_SIGMOID: {
                const float t = std::fma(v, p0, p1);
                return t < 0 ? 0.0f : t > 1 ? 1.0f : t;
            }
            case ACT_ABS:
                return std::signbit(v) ? -v : v;
            case ACT_LEAKY_RELU:
                return v < 0 ? v * p0 : v;
            case ACT_TANH:
                return std::tanh(v);
            case ACT_PRELU:
                return v < 0 ? v * slopes[index / (x.values.size() / x.shape.c)] : v;
        }
        return v;
    });
}

inline float combine(EltwiseType type, float a, float b) {
    switch (type) {
        case ELTWISE_ADD:
            return a + b;
        case ELTWISE_SUB:
            return a - b;
        case ELTWISE_MUL:
            return a * b;
        case ELTWISE_DIV:
            return a / b;
        case ELTWISE_MAX:
            return a > b ? a : b;
    }
    return a;
}

// b's element where it has an extent of 1 at c, h or w; 0 where it has no element.
inline Plain eltwise(const Plain& a, const Plain& b, EltwiseType type) {
    const bool planePerSample =
        type != ELTWISE_MAX && b.shape.c != a.shape.c && b.shape.h == a.shape.h && b.shape.w == a.shape.w;
    return make(a.shape, [&](int n, int c, int h, int w) {
        const std::size_t channel =
            planePerSample ? n : static_cast<std::size_t>(n) * b.shape.c + (b.shape.c == 1 ? 0 : c);
        const std::size_t index =
            (channel * b.shape.h + (b.shape.h == 1 ? 0 : h)) * b.shape.w + (b.shape.w == 1 ? 0 : w);
        return combine(type, a.at(n, c, h, w), index < b.values.size() ? b.values[index] : 0.0f);
    });
}

inline Plain batchNormalize(const Plain& x, const std::vector<float>& scale, const std::vector<float>& bias,
                            const std::vector<float>& mean, const std::vector<float>& variance, float epsilon) {
    return make(x.shape, [&](int n, int c, int h, int w) {
        return ((x.at(n, c, h, w) - mean[c]) * scale[c]) / std::sqrt(variance[c] + epsilon) + bias[c];
    });
}

inline Plain fullConnect(const Plain& x, const nolk::Weights& k) {
    const int rowLength = x.shape.c / k.groups;
    return make({x.shape.n, k.groups * k.outChannels, 1, 1, 1}, [&](int n, int o, int, int) {
        const int row = n * k.groups + o / k.outChannels, out = o % k.outChannels;
        float sum = 0.0f;
        for (int i = 0; i < rowLength; ++i) sum += x.values[row * rowLength + i] * k.weight[out * rowLength + i];
        return k.bias ? sum + k.bias[out] : sum;
    });
}

}  // namespace plain
