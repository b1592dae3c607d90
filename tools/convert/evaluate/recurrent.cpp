#include <algorithm>
#include <cmath>
#include <cstdint>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

enum Input : std::size_t { kX, kW, kR, kB, kLengths, kInitialH, kInitialC, kPeepholes };

struct Lstm {
    std::int64_t steps = 0, batch = 0, inputSize = 0, hidden = 0, directions = 1;
    bool backward = false;    // the only direction, or the second
    bool batchFirst = false;  // layout 1: [n, T, I]
};

void needDims(const Call& call, std::size_t input, const char* name, const Dims& dims) {
    need(!call.has(input) || call.dims(input) == dims, std::string(name) + " of shape " +
                                                           (call.has(input) ? describeDims(call.dims(input)) : "") +
                                                           " instead of " + describeDims(dims));
}

void needUsualForm(const Call& call, const Lstm& lstm) {
    if (const auto* activations = call.find("activations")) {
        static const char* const kUsual[] = {"Sigmoid", "Tanh", "Tanh"};
        for (int i = 0; i < activations->strings_size(); ++i)
            need(activations->strings(i) == kUsual[i % 3],
                 "activation " + inQuotes(activations->strings(i)) + " is not supported");
    }
    need(!call.hasAttribute("clip"), "clip is not supported");
    need(call.intAttribute("input_forget", 0) == 0, "input_forget is not supported");
    if (!call.has(kLengths)) return;
    for (const std::int64_t length : call.ints(kLengths, "sequence_lens"))
        need(length == lstm.steps, "sequences of different lengths are not supported");
}

Lstm lstmOf(const Call& call) {
    Lstm lstm;
    need(call.rank(kX) == 3 && call.rank(kW) == 3 && call.rank(kR) == 3, "expects X, W and R of three dimensions");
    lstm.batchFirst = call.intAttribute("layout", 0) != 0;
    lstm.steps = call.dims(kX)[lstm.batchFirst ? 1 : 0];
    lstm.batch = call.dims(kX)[lstm.batchFirst ? 0 : 1];
    lstm.inputSize = call.dims(kX)[2];
    lstm.hidden = call.dims(kR)[2];
    const std::string direction = call.stringAttribute("direction", "forward");
    need(direction == "forward" || direction == "reverse" || direction == "bidirectional",
         "direction " + inQuotes(direction) + " is not known", kAgainstOnnx);
    lstm.directions = direction == "bidirectional" ? 2 : 1;
    lstm.backward = direction != "forward";
    const std::int64_t d = lstm.directions, h = lstm.hidden;
    need(call.intAttribute("hidden_size", h) == h, "hidden_size is not that of R", kAgainstOnnx);
    needDims(call, kW, "W", {d, 4 * h, lstm.inputSize});
    needDims(call, kR, "R", {d, 4 * h, h});
    needDims(call, kB, "B", {d, 8 * h});
    const Dims state = lstm.batchFirst ? Dims{lstm.batch, d, h} : Dims{d, lstm.batch, h};
    needDims(call, kInitialH, "initial_h", state);
    needDims(call, kInitialC, "initial_c", state);
    needDims(call, kPeepholes, "P", {d, 3 * h});
    return lstm;
}

Values lstmShapes(const Call& call) {
    const Lstm l = lstmOf(call);
    const int type = call.in(kX).type;
    const Dims all =
        l.batchFirst ? Dims{l.batch, l.steps, l.directions, l.hidden} : Dims{l.steps, l.directions, l.batch, l.hidden};
    const Dims last = l.batchFirst ? Dims{l.batch, l.directions, l.hidden} : Dims{l.directions, l.batch, l.hidden};
    return {valueOf(type, all), valueOf(type, last), valueOf(type, last)};
}

double sigmoid(double x) { return 1 / (1 + std::exp(-x)); }

// One direction of one sample, with pointers to this direction's weights.
struct Cell {
    const float *w, *r, *bias, *peepholes;  // the last two may be null
    std::vector<double> h, c;

    // Gates in the order input, output, forget, candidate.
    double gate(std::int64_t kind, std::int64_t unit, const float* x, const Lstm& l) const {
        const std::int64_t row = kind * l.hidden + unit;
        double sum = bias != nullptr ? static_cast<double>(bias[row]) + bias[4 * l.hidden + row] : 0;
        for (std::int64_t i = 0; i < l.inputSize; ++i) sum += static_cast<double>(w[row * l.inputSize + i]) * x[i];
        for (std::int64_t i = 0; i < l.hidden; ++i) sum += r[row * l.hidden + i] * h[static_cast<std::size_t>(i)];
        return sum;
    }
    double peephole(std::int64_t kind, std::int64_t unit, const Lstm& l, double state) const {
        return peepholes != nullptr ? peepholes[kind * l.hidden + unit] * state : 0;
    }
    void step(const float* x, const Lstm& l) {
        std::vector<double> nextH(h.size());
        for (std::int64_t unit = 0; unit < l.hidden; ++unit) {
            const auto u = static_cast<std::size_t>(unit);
            const double in = sigmoid(gate(0, unit, x, l) + peephole(0, unit, l, c[u]));
            const double forget = sigmoid(gate(2, unit, x, l) + peephole(2, unit, l, c[u]));
            const double candidate = std::tanh(gate(3, unit, x, l));
            c[u] = forget * c[u] + in * candidate;
            nextH[u] = sigmoid(gate(1, unit, x, l) + peephole(1, unit, l, c[u])) * std::tanh(c[u]);
        }
        h = nextH;
    }
};

Arrays computeLstm(const Call& call, const Values& results) {
    const Lstm l = lstmOf(call);
    needUsualForm(call, l);
    call.takeWork(static_cast<double>(l.steps * l.batch * l.directions) * 4 * static_cast<double>(l.hidden) *
                  static_cast<double>(l.inputSize + l.hidden));
    const auto data = [&](std::size_t input) { return call.has(input) ? call.floats(input).data() : nullptr; };
    std::vector<float> all(static_cast<std::size_t>(elementCount(results[0].dims)));
    std::vector<float> lastH(static_cast<std::size_t>(elementCount(results[1].dims))), lastC = lastH;
    for (std::int64_t d = 0; d < l.directions; ++d)
        for (std::int64_t n = 0; n < l.batch; ++n) {
            const std::int64_t state = (l.batchFirst ? n * l.directions + d : d * l.batch + n) * l.hidden;
            Cell cell{data(kW) + d * 4 * l.hidden * l.inputSize,
                      data(kR) + d * 4 * l.hidden * l.hidden,
                      call.has(kB) ? data(kB) + d * 8 * l.hidden : nullptr,
                      call.has(kPeepholes) ? data(kPeepholes) + d * 3 * l.hidden : nullptr,
                      {},
                      {}};
            const auto initial = [&](std::size_t input) {
                std::vector<double> values(static_cast<std::size_t>(l.hidden), 0);
                if (call.has(input)) std::copy_n(data(input) + state, l.hidden, values.begin());
                return values;
            };
            cell.h = initial(kInitialH);
            cell.c = initial(kInitialC);
            for (std::int64_t i = 0; i < l.steps; ++i) {
                const std::int64_t t = l.backward && d == l.directions - 1 ? l.steps - 1 - i : i;
                cell.step(data(kX) + (l.batchFirst ? n * l.steps + t : t * l.batch + n) * l.inputSize, l);
                const std::int64_t place =
                    l.batchFirst ? (n * l.steps + t) * l.directions + d : (t * l.directions + d) * l.batch + n;
                std::copy(cell.h.begin(), cell.h.end(), all.begin() + place * l.hidden);
            }
            std::copy(cell.h.begin(), cell.h.end(), lastH.begin() + state);
            std::copy(cell.c.begin(), cell.c.end(), lastC.begin() + state);
        }
    return {{results[0].type, results[0].dims, std::move(all)},
            {results[1].type, results[1].dims, std::move(lastH)},
            {results[2].type, results[2].dims, std::move(lastC)}};
}

}  // namespace

const std::vector<Operator>& recurrentOperators() {
    static const std::vector<Operator> rows = {{"LSTM", lstmShapes, computeLstm}};
    return rows;
}

}  // namespace convert
