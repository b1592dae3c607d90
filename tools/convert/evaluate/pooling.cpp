#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "convert/evaluate/Operator.h"
#include "convert/evaluate/window.h"

namespace convert {

namespace {

struct Pooling {
    Planes input, output;
    Window window;
};

Pooling poolingOf(const Call& call) {
    Pooling pool;
    pool.input = pool.output = planesOf(call.dims(0));
    const auto kernel = call.intsAttribute("kernel_shape");
    need(kernel && !kernel->empty(), "kernel_shape is missing", kAgainstOnnx);
    pool.window = windowOf(call, *kernel, pool.input);
    const bool ceilMode = call.intAttribute("ceil_mode", 0) != 0;
    pool.output.h = positions(pool.window.h, pool.input.h, ceilMode);
    pool.output.w = positions(pool.window.w, pool.input.w, ceilMode);
    return pool;
}

Values poolShapes(const Call& call) {
    Values results{valueOf(call.in(0).type, dimsOf(poolingOf(call).output, call.dims(0).size()))};
    if (call.outputCount() > 1) results.push_back(valueOf(onnx::TensorProto::INT64, results[0].dims));
    return results;
}

// Calls use(value) for the elements of x that lie in the window, and returns how many places of it lie in the input or
// its padding.
template <typename Use>
std::int64_t forEachInWindow(const Pooling& pool, const float* x, std::int64_t oh, std::int64_t ow, Use&& use) {
    const auto& [h, w] = pool.window;
    std::int64_t places = 0;
    for (std::int64_t kh = 0; kh < h.kernel; ++kh)
        for (std::int64_t kw = 0; kw < w.kernel; ++kw) {
            const std::int64_t row = oh * h.stride - h.begin + kh * h.dilation;
            const std::int64_t column = ow * w.stride - w.begin + kw * w.dilation;
            if (row < pool.input.h + h.end && column < pool.input.w + w.end) ++places;
            if (row >= 0 && row < pool.input.h && column >= 0 && column < pool.input.w)
                use(x[row * pool.input.w + column]);
        }
    return places;
}

double maximumOf(const Call&, const Pooling& pool, const float* x, std::int64_t oh, std::int64_t ow) {
    double result = -std::numeric_limits<double>::infinity();
    forEachInWindow(pool, x, oh, ow, [&](double value) { result = std::max(result, value); });
    return result;
}

double averageOf(const Call& call, const Pooling& pool, const float* x, std::int64_t oh, std::int64_t ow) {
    double sum = 0;
    std::int64_t count = 0;
    const std::int64_t places = forEachInWindow(pool, x, oh, ow, [&](double value) {
        sum += value;
        ++count;
    });
    return sum / static_cast<double>(call.intAttribute("count_include_pad", 0) != 0 ? places : count);
}

double normOf(const Call& call, const Pooling& pool, const float* x, std::int64_t oh, std::int64_t ow) {
    const auto p = static_cast<double>(call.intAttribute("p", 2));
    double sum = 0;
    forEachInWindow(pool, x, oh, ow, [&](double value) { sum += std::pow(std::abs(value), p); });
    return std::pow(sum, 1 / p);
}

template <double (*reduceWindow)(const Call&, const Pooling&, const float*, std::int64_t, std::int64_t)>
Arrays computePool(const Call& call, const Values& results) {
    need(!call.wants(1), "the second output, Indices, is not supported");
    const Pooling pool = poolingOf(call);
    call.takeWork(static_cast<double>(elementCount(results[0].dims)) * static_cast<double>(pool.window.h.kernel) *
                  static_cast<double>(pool.window.w.kernel));
    std::vector<float> values;
    const float* x = call.floats(0).data();
    for (std::int64_t plane = 0; plane < pool.input.n * pool.input.c; ++plane, x += pool.input.h * pool.input.w)
        for (std::int64_t oh = 0; oh < pool.output.h; ++oh)
            for (std::int64_t ow = 0; ow < pool.output.w; ++ow)
                values.push_back(static_cast<float>(reduceWindow(call, pool, x, oh, ow)));
    return {{results[0].type, results[0].dims, std::move(values)}};
}

Values globalShapes(const Call& call) {
    need(call.rank(0) >= 3, "input of shape " + describeDims(call.dims(0)) + " has no plane");
    Dims dims = call.dims(0);
    std::fill(dims.begin() + 2, dims.end(), 1);
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeGlobal(const Call& call, const Values& results) {
    const std::vector<float>& x = call.floats(0);
    const std::size_t planes = static_cast<std::size_t>(elementCount(results[0].dims));
    const std::size_t extent = planes == 0 ? 0 : x.size() / planes;
    need(extent != 0, "input of shape " + describeDims(call.dims(0)) + " is empty");
    const bool isMaximum = call.node.op_type() == "GlobalMaxPool";
    std::vector<float> values;
    for (std::size_t plane = 0; plane < planes; ++plane) {
        double sum = 0, maximum = -std::numeric_limits<double>::infinity();
        for (std::size_t i = 0; i < extent; ++i) {
            sum += x[plane * extent + i];
            maximum = std::max<double>(maximum, x[plane * extent + i]);
        }
        values.push_back(static_cast<float>(isMaximum ? maximum : sum / static_cast<double>(extent)));
    }
    return {{results[0].type, results[0].dims, std::move(values)}};
}

}  // namespace

const std::vector<Operator>& poolingOperators() {
    static const std::vector<Operator> rows = {
        {"AveragePool", poolShapes, computePool<averageOf>}, {"GlobalAveragePool", globalShapes, computeGlobal},
        {"GlobalMaxPool", globalShapes, computeGlobal},      {"LpPool", poolShapes, computePool<normOf>},
        {"MaxPool", poolShapes, computePool<maximumOf>},
    };
    return rows;
}

}  // namespace convert
