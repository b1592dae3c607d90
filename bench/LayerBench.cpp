// Compares each layer with a loop that does the same arithmetic in the same order, written for one fixed size. A runner
// copies its input in and its output out, so compareLayer lets the loops do the same.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <utility>

#include "Network.h"
#include "benches.h"
#include "compare.h"

namespace {

using Floats = std::vector<float>;
using Inputs = std::vector<nolk::TensorX*>;

// loop(out, ins...) reads copies of the network's inputs and writes a buffer that is then copied out.
template <typename Loop>
void compareLayer(const char* name, const std::shared_ptr<Network>& net, std::size_t inputCount, Loop loop) {
    struct State {
        std::vector<Floats> inside;
        Floats result, output;
    };
    const auto state = std::make_shared<State>();
    for (std::size_t i = 0; i < inputCount; ++i) state->inside.emplace_back(net->input(i).size());
    state->result.resize(net->output().size());
    state->output.resize(net->output().size());
    const auto bare = [net, state, loop]() mutable {
        for (std::size_t i = 0; i < state->inside.size(); ++i)
            std::memcpy(state->inside[i].data(), net->input(i).data(), net->input(i).size() * sizeof(float));
        loop(state->result.data(), state->inside);
        std::memcpy(state->output.data(), state->result.data(), state->result.size() * sizeof(float));
    };
    compare(name, {[net] { net->run(); }, &net->output()}, {bare, &state->output}, 1e-4f);
}

// Softmax over c of [1, c, positions]. Goes through the channels one by one, so that inner loops run over positions.
struct Softmax {
    int channels, positions;

    void operator()(float* out, const std::vector<Floats>& ins) {
        const float* x = ins[0].data();
        Floats maxima(x, x + positions), sums(static_cast<std::size_t>(positions));
        for (int c = 1; c < channels; ++c) {
            const float* row = x + c * positions;
            for (int i = 0; i < positions; ++i) maxima[i] = row[i] > maxima[i] ? row[i] : maxima[i];
        }
        for (int c = 0; c < channels; ++c) {
            const float* row = x + c * positions;
            float* outRow = out + c * positions;
            for (int i = 0; i < positions; ++i) {
                outRow[i] = std::exp(row[i] - maxima[i]);
                sums[i] += outRow[i];
            }
        }
        for (int c = 0; c < channels; ++c) {
            float* outRow = out + c * positions;
            for (int i = 0; i < positions; ++i) outRow[i] /= sums[i];
        }
    }
};

void compareSoftmax() {
    const auto net = std::make_shared<Network>(
        std::vector<nolk::TensorShape>{{1, 64, 56, 56, 3}},
        [](nolk::RunnerBuilder& builder, const Inputs& x) { return builder.softmax(x[0], nolk::Axis::c); });
    compareLayer("softmax over c, 64x56x56", net, 1, Softmax{64, 56 * 56});
}

// [rows, columns] to [columns, rows], written in order.
struct Transpose {
    int rows, columns;

    void operator()(float* out, const std::vector<Floats>& ins) {
        const float* x = ins[0].data();
        const std::ptrdiff_t height = rows, width = columns;
        for (std::ptrdiff_t c = 0; c < width; ++c)
            for (std::ptrdiff_t r = 0; r < height; ++r) out[c * height + r] = x[r * width + c];
    }
};

void compareTranspose() {
    const auto net = std::make_shared<Network>(std::vector<nolk::TensorShape>{{1, 64, 56, 56, 3}},
                                               [](nolk::RunnerBuilder& builder, const Inputs& x) {
                                                   return builder.transpose(x[0], {{0, 2, 3, 1}});
                                               });
    compareLayer("transpose to channel-last, 64x56x56", net, 1, Transpose{64, 56 * 56});
}

// Bilinear resize to twice the height and width, half-pixel. Interpolates every source row once, then between rows.
struct Upscale {
    int planes, extent;  // of the source, in both directions

    void operator()(float* out, const std::vector<Floats>& ins) {
        const int wide = 2 * extent;
        Floats stretched(static_cast<std::size_t>(extent * wide));
        for (int plane = 0; plane < planes; ++plane) {
            const float* x = ins[0].data() + plane * extent * extent;
            for (int row = 0; row < extent; ++row) stretch(x + row * extent, &stretched[row * wide]);
            for (int row = 0; row < wide; ++row, out += wide) {
                const auto [above, weight] = source(row);
                const float *a = &stretched[above * wide], *b = a + wide;
                for (int i = 0; i < wide; ++i) out[i] = (1.0f - weight) * a[i] + weight * b[i];
            }
        }
    }

private:
    std::pair<int, float> source(int d) const {
        const float at = static_cast<float>(0.5 * (d + 0.5) - 0.5);
        if (at < 0.0f) return {0, 0.0f};
        const int below = static_cast<int>(at);
        return below >= extent - 1 ? std::pair{extent - 2, 1.0f} : std::pair{below, at - static_cast<float>(below)};
    }

    // All inner pairs of neighbours have the weights 1/4 and 3/4.
    void stretch(const float* x, float* out) const {
        out[0] = x[0];
        for (std::ptrdiff_t i = 0; i + 1 < extent; ++i) {
            out[2 * i + 1] = 0.75f * x[i] + 0.25f * x[i + 1];
            out[2 * i + 2] = 0.25f * x[i] + 0.75f * x[i + 1];
        }
        out[2 * extent - 1] = x[extent - 1];
    }
};

void compareResize() {
    const auto net = std::make_shared<
        Network>(std::vector<nolk::TensorShape>{{1, 64, 80, 80, 3}}, [](nolk::RunnerBuilder& builder, const Inputs& x) {
        return builder.resize(x[0], {1, 64, 160, 160, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel);
    });
    compareLayer("resize bilinear, 64x80x80 to 160x160", net, 1, Upscale{64, 80});
}

// Transposed convolution with a 2x2 kernel and stride 2. Kernel positions do not overlap, so an output row consists of
// two rows of sums over the input channels, for its even and its odd columns.
struct Deconvolution {
    int channels, extent;
    std::shared_ptr<Floats> weights;  // [in, out, 2, 2]

    void operator()(float* out, const std::vector<Floats>& ins) {
        const std::ptrdiff_t plane = extent * extent;
        Floats sums(static_cast<std::size_t>(extent) * 2);
        for (int oc = 0; oc < channels; ++oc)
            for (int ih = 0; ih < extent; ++ih)
                for (int kh = 0; kh < 2; ++kh, out += 2 * extent) {
                    float *even = sums.data(), *odd = even + extent;
                    std::fill(sums.begin(), sums.end(), 0.0f);
                    for (int ic = 0; ic < channels; ++ic) {
                        const float* x = ins[0].data() + ic * plane + ih * extent;
                        const float* w = weights->data() + (ic * channels + oc) * 4 + kh * 2;
                        const float w0 = w[0], w1 = w[1];
                        for (int i = 0; i < extent; ++i) even[i] = std::fma(x[i], w0, even[i]);
                        for (int i = 0; i < extent; ++i) odd[i] = std::fma(x[i], w1, odd[i]);
                    }
                    for (std::ptrdiff_t i = 0; i < extent; ++i) {
                        out[2 * i] = even[i];
                        out[2 * i + 1] = odd[i];
                    }
                }
    }
};

void compareDeconvolution() {
    const auto weights = std::make_shared<Floats>(randomFloats(24 * 24 * 4));
    const auto net = std::make_shared<Network>(
        std::vector<nolk::TensorShape>{{1, 24, 160, 160, 3}}, [&](nolk::RunnerBuilder& builder, const Inputs& x) {
            return builder.deConvolve(x[0], {0, 0, 0, 0}, {2, 2}, {1, 1},
                                      {1, 24, 24, 2, 2, false, weights->data(), nullptr});
        });
    compareLayer("deconvolution 2x2 stride 2, 24x160x160", net, 1, Deconvolution{24, 160, weights});
}

// [rows, depth] * [depth, columns] for each plane, row after row.
struct MatrixProducts {
    int planes, rows, depth, columns;

    void operator()(float* out, const std::vector<Floats>& ins) {
        const float *a = ins[0].data(), *b = ins[1].data();
        std::fill(out, out + planes * rows * columns, 0.0f);
        for (int plane = 0; plane < planes; ++plane, b += depth * columns)
            for (int row = 0; row < rows; ++row, a += depth, out += columns)
                for (int k = 0; k < depth; ++k) {
                    const float factor = a[k], *rowOfB = b + k * columns;
                    for (int i = 0; i < columns; ++i) out[i] = std::fma(factor, rowOfB[i], out[i]);
                }
    }
};

void compareMatrixProducts() {
    const auto net = std::make_shared<Network>(
        std::vector<nolk::TensorShape>{{1, 8, 120, 32, 3}, {1, 8, 32, 120, 3}},
        [](nolk::RunnerBuilder& builder, const Inputs& x) { return builder.matMul(x[0], x[1]); });
    compareLayer("matMul 120x32 by 32x120, 8 planes", net, 2, MatrixProducts{8, 120, 32, 120});
}

// Both directions of an LSTM without bias. The weights are transposed once, so that inner loops run over the gates of
// all units.
class Lstm {
public:
    Lstm(int steps, int inputs, int units, const Floats& inputWeights, const Floats& recurrentWeights)
        : steps_(steps), inputs_(inputs), units_(units), gates_(static_cast<std::size_t>(4 * units)) {
        for (int d = 0; d < 2; ++d) {
            fromInput_[d] = turned(&inputWeights[static_cast<std::size_t>(d * 4 * units * inputs)], inputs);
            fromHidden_[d] = turned(&recurrentWeights[static_cast<std::size_t>(d * 4 * units * units)], units);
        }
    }

    void operator()(float* out, const std::vector<Floats>& ins) {
        for (int d = 0; d < 2; ++d) {
            Floats hidden(static_cast<std::size_t>(units_)), memory(hidden.size());
            for (int s = 0; s < steps_; ++s) {
                const int t = d == 0 ? s : steps_ - 1 - s;
                std::fill(gates_.begin(), gates_.end(), 0.0f);
                accumulate(fromInput_[d], ins[0].data() + t * inputs_, inputs_);
                accumulate(fromHidden_[d], hidden.data(), units_);
                for (int j = 0; j < units_; ++j) {
                    const float in = sigmoid(gates_[j]), output = sigmoid(gates_[units_ + j]);
                    const float forget = sigmoid(gates_[2 * units_ + j]);
                    memory[j] = forget * memory[j] + in * std::tanh(gates_[3 * units_ + j]);
                    hidden[j] = output * std::tanh(memory[j]);
                }
                std::copy(hidden.begin(), hidden.end(), out + (t * 2 + d) * units_);
            }
        }
    }

private:
    static float sigmoid(float v) { return 1.0f / (std::exp(-v) + 1.0f); }

    Floats turned(const float* weights, int columns) const {
        Floats result;
        for (int column = 0; column < columns; ++column)
            for (int row = 0; row < 4 * units_; ++row) result.push_back(weights[row * columns + column]);
        return result;
    }

    void accumulate(const Floats& weights, const float* x, int count) {
        const int width = 4 * units_;
        float* gates = gates_.data();
        const float* row = weights.data();
        for (int k = 0; k < count; ++k, row += width)
            for (int i = 0; i < width; ++i) gates[i] += row[i] * x[k];
    }

    int steps_, inputs_, units_;
    Floats fromInput_[2], fromHidden_[2];  // [inputs or units, 4 * units]
    Floats gates_;
};

void compareLstm() {
    constexpr int kSteps = 100, kInputs = 64, kUnits = 128;
    Floats weights = randomFloats(2 * 4 * kUnits * (kInputs + kUnits));
    for (float& w : weights) w *= 0.1f;  // small weights, so that the gates do not saturate
    Floats w(weights.begin(), weights.begin() + 2 * 4 * kUnits * kInputs),
        r(weights.begin() + 2 * 4 * kUnits * kInputs, weights.end());
    const auto net = std::make_shared<Network>(
        std::vector<nolk::TensorShape>{{1, 1, kSteps, kInputs, 3}}, [&](nolk::RunnerBuilder& builder, const Inputs& x) {
            return builder.lstm(x[0], {nolk::Direction::both, 2, kInputs, kUnits, w.data(), r.data(), nullptr, true});
        });
    compareLayer("lstm both ways, 100 steps, 64 to 128", net, 1, Lstm(kSteps, kInputs, kUnits, w, r));
}

}  // namespace

void compareLayers() {
    compareLstm();
    compareResize();
    compareSoftmax();
    compareTranspose();
    compareDeconvolution();
    compareMatrixProducts();
}
