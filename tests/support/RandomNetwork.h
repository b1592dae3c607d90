// Records random networks with the shapes that the fast back end's passes look for: convolutions with normalisations
// and activations behind them, residual additions, gates, squeeze and excitation, nested concatenations, branches.
//   RandomNetwork network(7, 2);  Xs outputs = network.record(builder);  network.inputs  // shapes
// One seed gives the same network, for any builder, compiler and batch; samples do not depend on each other. (Calls
// that take random numbers are not operands or arguments of one expression, where the compiler chooses their order.)
#pragma once

#include <nolk.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <vector>

#include "support/Recording.h"
#include "support/values.h"

class RandomNetwork {
public:
    // isSmall: few channels and positions, for what computes slowly.
    RandomNetwork(std::uint32_t seed, int batch, bool isSmall = false)
        : batch_(batch), mostChannels_(isSmall ? 2 : 10), random_(seed), arrays_(seed) {
        const int largest = isSmall ? 6 : 13;
        for (int i = pick(1, 3); i > 0; --i) {
            const int size = pick(1, largest);
            inputs.push_back({batch, channels(), size, pick(0, 1) ? size : pick(1, largest), 3});
        }
        steps_ = pick(6, 24);
    }

    std::vector<Shape> inputs;

    // Once for each object: the arrays are made here.
    Xs record(Builder& builder) {
        b_ = &builder;
        for (const Shape& shape : inputs) values_.push_back(builder.input(shape));
        if (pick(0, 2) == 0) values_.push_back(constant(inputs[0]));
        while (steps_-- > 0) values_.push_back(operation(someValue()));
        Xs outputs{values_.back()};
        for (int i = pick(0, 4); i > 0; --i)
            outputs.push_back(values_[index(pick(0, static_cast<int>(values_.size()) - 1))]);
        return outputs;
    }

private:
    static std::size_t index(int i) { return static_cast<std::size_t>(i); }
    int pick(int low, int high) { return random_.integer(low, high); }
    int channels() {
        const int all[] = {1, 3, 4, 8, 16, 16, 20, 24, 32, 40, 48};
        return all[pick(0, mostChannels_)];
    }
    Shape shapeOf(X x) { return b_->shapeOf(x); }
    static int elements(const Shape& s) { return s.c * s.h * s.w; }

    // The last ones more often: that makes chains.
    X someValue() {
        const int last = static_cast<int>(values_.size()) - 1;
        return values_[index(pick(0, 2) ? std::max(0, last - pick(0, 1)) : pick(0, last))];
    }
    X sameShape(X x) {
        X found = x;
        for (X const other : values_) {
            const Shape a = shapeOf(x), b = shapeOf(other);
            if (a.c == b.c && a.h == b.h && a.w == b.w && pick(0, 1)) found = other;
        }
        return found;
    }

    // The same values for every sample.
    X constant(const Shape& s) {
        const std::vector<float> sample = random_.reals(static_cast<std::size_t>(elements(s)));
        std::vector<float> samples;
        for (int n = 0; n < batch_; ++n) samples.insert(samples.end(), sample.begin(), sample.end());
        nolk::Tensor tensor{s, samples.data()};
        return b_->constTensor(&tensor);
    }

    // So small that values neither grow nor vanish.
    nolk::Weights weights(int groups, int out, int in, int kernelH, int kernelW, bool shared = false) {
        const bool bias = pick(0, 3) > 0;
        nolk::Weights w = arrays_.weights(groups, out, in, kernelH, kernelW, bias, shared);
        const float factor = 1.7f / std::sqrt(static_cast<float>(std::max(in * kernelH * kernelW, 1)));
        for (int i = 0; i < (shared ? 1 : groups) * out * in * kernelH * kernelW; ++i) w.weight[i] *= factor;
        return w;
    }

    X operation(X x) {
        const Shape s = shapeOf(x);
        if (s.h > 30 || s.w > 60) return b_->resize(x, {s.n, s.c, 9, 11, 3}, nolk::ResizeMode::nearest, {});
        if (s.c > 150) return b_->convolve(x, {}, {1, 1}, {1, 1}, weights(1, 24, s.c, 1, 1));
        using Make = X (RandomNetwork::*)(X);
        using N = RandomNetwork;
        const Make makes[] = {
            &N::convolution,   &N::convolution,   &N::convolution, &N::block,         &N::grouped,
            &N::depthwise,     &N::deconvolution, &N::residual,    &N::gated,         &N::squeezeAndExcitation,
            &N::concatenation, &N::concatenation, &N::activation,  &N::normalization, &N::eltwise,
            &N::pooling,       &N::resize,        &N::reshape,     &N::moved,         &N::reduction,
            &N::connection,    &N::sequence};
        const int kind = pick(0, 21);
        X const y = (this->*makes[kind])(x);
        if (kind == 5) return activation(y);
        return kind == 13 ? normalization(y) : y;
    }

    X block(X x) { return activation(normalization(convolution(x))); }
    X connection(X x) { return normalization(activation(fullConnection(x))); }
    X convolution(X x) { return convolution(x, channels()); }
    X convolution(X x, int out) {
        const Shape s = shapeOf(x);
        const struct {
            nolk::DimsHW kernel, stride, dilation;
            nolk::Padding padding;
        } kinds[] = {{{1, 1}, {1, 1}, {1, 1}, {}},           {{1, 1}, {2, 2}, {1, 1}, {}},
                     {{3, 3}, {1, 1}, {1, 1}, {1, 1, 1, 1}}, {{3, 3}, {2, 2}, {1, 1}, {1, 1, 1, 1}},
                     {{3, 3}, {2, 2}, {1, 1}, {0, 1, 0, 1}}, {{3, 3}, {1, 1}, {2, 2}, {2, 2, 2, 2}},
                     {{1, 7}, {1, 1}, {1, 1}, {0, 0, 3, 3}}, {{5, 2}, {1, 3}, {1, 2}, {4, 2, 1, 5}},
                     {{3, 3}, {3, 2}, {1, 1}, {}},           {{3, 3}, {2, 3}, {1, 1}, {40, 9, 30, 50}},
                     {{2, 2}, {1, 1}, {1, 1}, {-1, 0, 0, 0}}};
        auto k = kinds[pick(0, 10)];
        if (s.h + k.padding.top + k.padding.bottom < (k.kernel.h - 1) * k.dilation.h + 1 ||
            s.w + k.padding.left + k.padding.right < (k.kernel.w - 1) * k.dilation.w + 1)
            k = kinds[0];
        return b_->convolve(x, k.padding, k.stride, k.dilation, weights(1, out, s.c, k.kernel.h, k.kernel.w));
    }

    X grouped(X x) {
        const int sizes[] = {4, 8, 24, 2, 16};
        const int size = sizes[pick(0, 4)], wide = sizes[pick(0, 4)], out = wide / pick(1, 2);
        const Shape s = shapeOf(x);
        if (s.c % size != 0) return grouped(convolution(x, size * pick(1, 3)));
        const nolk::Weights w = weights(s.c / size, out, size, 3, 3, pick(0, 1) == 1);
        return b_->convolve(x, {1, 1, 1, 1}, {pick(1, 2), 1}, {1, 1}, w);
    }

    X depthwise(X x) {
        const int k = pick(0, 1) ? 3 : 5, dilation = pick(1, 2), pad = k / 2 * dilation;
        const nolk::Weights w = weights(shapeOf(x).c, 1, 1, k, k, pick(0, 3) == 0);
        return b_->convolve(x, {pad, pad, pad, pad}, {pick(1, 2), pick(1, 2)}, {dilation, dilation}, w);
    }

    X deconvolution(X x) {
        const int kernel = pick(1, 4), before = pick(0, kernel - 1);
        const nolk::DimsHW stride{pick(1, 3), pick(1, 3)};
        // More output behind than in front: padding below 0.
        const nolk::Padding p{before, before - pick(0, before), before, pick(-1, 0)};
        const Shape s = shapeOf(x);
        if ((s.h - 1) * stride.h + kernel - p.top - p.bottom < 1 ||
            (s.w - 1) * stride.w + kernel - p.left - p.right < 1)
            return convolution(x);
        const int out = channels();
        nolk::Weights w = weights(1, out, s.c, kernel, kernel);
        return normalization(b_->deConvolve(x, p, stride, {1, 1}, w));
    }

    X residual(X x) {
        const int c = shapeOf(x).c;
        X const y = b_->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, weights(1, c, c, 3, 3));
        X const sum = pick(0, 1) ? b_->add(x, y) : b_->add(y, x);
        return pick(0, 1) ? b_->relu(sum) : activation(sum);
    }

    X gated(X x) {
        X const gate = pick(0, 1) ? b_->sigmoid(x) : b_->hardSigmoid(x, 1.0f / 6.0f, 0.5f);
        return pick(0, 1) ? b_->multiply(x, gate) : b_->multiply(gate, x);
    }

    X squeezeAndExcitation(X x) {
        const Shape s = shapeOf(x);
        X gate = b_->reduce(x, {s.n, s.c, 1, 1, 3}, nolk::BasicOp::mean);
        const nolk::Weights first = weights(1, 6, s.c, 1, 1), second = weights(1, s.c, 6, 1, 1);
        if (pick(0, 1)) {
            gate = b_->fullConnect(b_->relu(b_->fullConnect(gate, first)), second);
        } else {
            gate = b_->relu(b_->convolve(gate, {}, {1, 1}, {1, 1}, first));
            gate = b_->convolve(gate, {}, {1, 1}, {1, 1}, second);
        }
        return b_->multiply(x, b_->sigmoid(gate));
    }

    X concatenation(X x) {
        const Shape s = shapeOf(x);
        Xs parts{x};
        for (int i = pick(1, 3); i > 0; --i) {
            X part = someValue();
            const Shape other = shapeOf(part);
            const int kind = pick(0, 4);
            if (kind == 0)
                part = constant({s.n, channels(), s.h, s.w, 3});
            else if (kind == 1)
                part = x;
            else if (other.h != s.h || other.w != s.w)
                part = b_->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, weights(1, channels(), s.c, 3, 3));
            parts.push_back(part);
            values_.push_back(part);
        }
        return b_->concat(parts.data(), static_cast<int>(parts.size()), nolk::Axis::c);
    }

    X activation(X x) {
        const Shape s = shapeOf(x);
        const int kind = pick(0, 9);
        if (kind == 0) return b_->sigmoid(x);
        if (kind == 1) return b_->exp(b_->clip(x, -3.0f, 1.0f));
        if (kind == 2) return b_->clip(x, 0.0f, 6.0f);
        if (kind == 3) return b_->hardSigmoid(x, 0.3f, 0.4f);
        if (kind == 4) return b_->abs(x);
        if (kind == 5) return b_->leakyRelu(x, 0.1f);
        if (kind == 6) return b_->tanh(x);
        if (kind > 7) return b_->relu(x);
        // In a batch, slopes do not follow the channels.
        return b_->prelu(x, std::vector<float>(static_cast<std::size_t>(s.c), 0.25f).data(), s.c);
    }

    X normalization(X x) {
        const int c = shapeOf(x).c;
        const nolk::Vector scale = arrays_.vector(c), bias = arrays_.vector(c), mean = arrays_.vector(c);
        return b_->batchNormalize(x, scale, bias, mean, arrays_.positive(c), 1e-3f);
    }

    X eltwise(X x) {
        const Shape s = shapeOf(x);
        const int from = pick(0, 6);
        X const other = from == 0   ? b_->reduce(x, {s.n, s.c, 1, 1, 3}, nolk::BasicOp::maximum)
                        : from == 1 ? b_->reduce(x, {s.n, 1, 1, 1, 3}, nolk::BasicOp::minimum)
                        : from == 2 ? b_->reduce(x, {s.n, 1, s.h, s.w, 3}, nolk::BasicOp::mean)
                        : from == 3 ? constant(s)
                                    : sameShape(x);
        const int kind = pick(0, 4);
        if (kind == 0) return b_->add(x, other);
        if (kind == 1) return b_->sub(x, other);
        if (kind == 2) return b_->max(x, other);
        if (kind == 3) return b_->multiply(b_->clip(x, -2.0f, 2.0f), b_->tanh(other));
        return b_->divide(x, b_->exp(b_->tanh(other)));
    }

    X pooling(X x) {
        const int k = pick(1, 3), p = pick(0, k - 1);
        const nolk::DimsHW stride{pick(1, 2), pick(1, 2)};
        const Shape s = shapeOf(x);
        if (s.h + 2 * p < k || s.w + 2 * p < k) return b_->relu(x);
        return pick(0, 1) ? b_->maxPool(x, {k, k}, {p, p, p, p}, stride) : b_->avgPool(x, {k, k}, {p, p, p, p}, stride);
    }

    X resize(X x) {
        const Shape s = shapeOf(x);
        const Shape out{s.n, s.c, pick(0, 1) ? 2 * s.h : pick(1, 15), pick(0, 1) ? 2 * s.w : pick(1, 15), 3};
        const auto mode = pick(0, 1) ? nolk::ResizeMode::nearest : nolk::ResizeMode::linear;
        const auto transMode = pick(0, 1) ? nolk::ResizeTransMode::halfPixel : nolk::ResizeTransMode::alignCorners;
        return b_->resize(x, out, mode, transMode);
    }

    // The built-in back end reshapes only what nothing else reads.
    X view(X x, Shape shape) { return b_->reshape(b_->leakyRelu(x, 0.5f), shape, nolk::TensorLayout::nchw); }

    X reshape(X x) {
        const Shape s = shapeOf(x);
        const Shape shapes[] = {s,
                                {s.n, elements(s), 1, 1, 3},
                                {s.n, s.h, s.c, s.w, 3},
                                {s.n, s.c * s.h, s.w, 1, 3},
                                {s.n, 1, s.c, s.h * s.w, 3}};
        return view(x, shapes[pick(0, 4)]);
    }

    X moved(X x) {
        const Shape s = shapeOf(x);
        const int kind = pick(0, 3);
        if (kind == 0) return b_->transpose(x, {{0, 2, 3, 1}});
        if (kind == 1) return b_->slice(x, {1, s.c / 2, s.c, 1});
        if (kind == 3) return b_->pad(x, {pick(0, 2), 0, pick(0, 1), 1});
        X const y = b_->slice(x, {2, 0, s.h, 2});
        return s.h > 1 ? y : x;  // what is left of one row is empty
    }

    X reduction(X x) {
        const Shape s = shapeOf(x);
        const int kind = pick(0, 4);
        if (kind == 0) return b_->reduce(x, {s.n, 1, s.h, s.w, 3}, nolk::BasicOp::mean);
        if (kind == 1) return b_->reduce(x, {s.n, s.c, 1, s.w, 3}, nolk::BasicOp::maximum);
        if (kind == 2) return b_->reduce(x, {s.n, s.c, s.h, 1, 3}, nolk::BasicOp::mean);
        if (kind == 3) return b_->softmax(x, static_cast<nolk::Axis>(pick(1, 3)));
        return b_->instanceNormalization(x, 0.1f);
    }

    X fullConnection(X x) {
        const Shape s = shapeOf(x);
        if (s.h * s.w > 1) x = view(x, {s.n, elements(s), 1, 1, 3});
        const int in = shapeOf(x).c;
        const int groups = in % 2 == 0 && pick(0, 3) == 0 ? 2 : 1;
        return b_->fullConnect(x, weights(groups, pick(1, 40), in / groups, 1, 1, true));
    }

    X sequence(X x) {
        const Shape s = shapeOf(x);
        if (pick(0, 1)) return b_->matMul(x, b_->softmax(b_->transpose(x, {{0, 1, 3, 2}}), nolk::Axis::h));
        X const rows = view(x, {s.n, 1, s.h, s.c * s.w, 3});
        const int in = s.c * s.w, hidden = pick(1, 20), both = pick(1, 2), gates = 4 * hidden * both;
        const float factor = 1.0f / std::sqrt(static_cast<float>(in + hidden));
        float* const w = arrays_.reals(gates * in);
        for (int i = 0; i < gates * in; ++i) w[i] *= factor;
        float* const recurrent = arrays_.reals(gates * hidden);
        for (int i = 0; i < gates * hidden; ++i) recurrent[i] *= factor;
        const auto direction = both == 2 ? nolk::Direction::both : static_cast<nolk::Direction>(pick(0, 1));
        return b_->lstm(rows, {direction, both, in, hidden, w, recurrent, arrays_.reals(2 * gates), true});
    }

    int batch_, mostChannels_, steps_ = 0;
    Values random_;
    Arrays arrays_;
    Builder* b_ = nullptr;
    Xs values_;
};
