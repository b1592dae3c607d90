#include <limits>
#include <memory>

#include "benches.h"
#include "compare.h"
#include "fast/kernels/FastKernels.h"
#include "math/lanes.h"

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kChains = 12;  // enough to fill the time that a fused multiply-add takes

// Fused multiply-adds in registers: how fast the processor can be. Returns the result, so that the work is done.
float fuseInLanes(std::int64_t steps) {
    Lanes sums[kChains] = {};
    const Lanes half = broadcast(0.5f);
    for (std::int64_t i = 0; i < steps / (kChains * kLanes); ++i)
        for (Lanes& sum : sums) sum = fma(sum, half, half);
    for (const Lanes& sum : sums) sums[0] += sum;
    return sums[0][0];
}

#ifdef __x86_64__
__attribute__((target("arch=x86-64-v4"))) float fuseInWideLanes(std::int64_t steps) {
    __m512 sums[kChains] = {};
    const __m512 half = _mm512_set1_ps(0.5f);
    for (std::int64_t i = 0; i < steps / (kChains * 16); ++i)
        for (__m512& sum : sums) sum = _mm512_fmadd_ps(sum, half, half);
    for (const __m512& sum : sums) sums[0] += sum;
    return sums[0][0];
}
#endif

float fuse(std::int64_t steps, const FastKernels& level) {
#ifdef __x86_64__
    if (level.name == std::string("x86-64-v4")) return fuseInWideLanes(steps);
#endif
    static_cast<void>(level);
    return fuseInLanes(steps);
}

// Floats that begin at a cache line, as in a runner's arena.
class Aligned {
public:
    explicit Aligned(std::int64_t count) : values_(randomFloats(static_cast<std::size_t>(count) + 16)) {
        while (reinterpret_cast<std::uintptr_t>(values_.data() + skipped_) % 64) ++skipped_;
    }
    float* data() { return values_.data() + skipped_; }

private:
    std::vector<float> values_;
    int skipped_ = 0;
};

// Inputs with a border of zeros, in blocks of 16 channels or plain.
struct Shape {
    const char* name;
    int in, out, kernel, stride, extent;  // the extent of the output
    bool plain;
    bool depthwise;

    int paddedExtent() const { return (extent - 1) * stride + kernel; }
    std::int64_t plane() const { return static_cast<std::int64_t>(paddedExtent()) * paddedExtent(); }
    int tapsOfOutput() const { return (depthwise ? 1 : in) * kernel * kernel; }
    std::int64_t outputs() const { return static_cast<std::int64_t>(out) * extent * extent; }
};

const Shape kShapes[] = {
    {"3x3, 64 to 64, 56x56", 64, 64, 3, 1, 56, false, false},
    {"3x3, 128 to 128, 28x28", 128, 128, 3, 1, 28, false, false},
    {"3x3, 256 to 256, 14x14", 256, 256, 3, 1, 14, false, false},
    {"3x3, 512 to 512, 7x7", 512, 512, 3, 1, 7, false, false},
    {"1x1, 256 to 64, 56x56", 256, 64, 1, 1, 56, false, false},
    {"1x1, 1024 to 256, 14x14", 1024, 256, 1, 1, 14, false, false},
    {"1x1, 192 to 48, 28x28", 192, 48, 1, 1, 28, false, false},
    {"7x7 stride 2, plain, 3 to 64, 112x112", 3, 64, 7, 2, 112, true, false},
    {"full connection, 512 to 1024", 512, 1024, 1, 1, 1, true, false},
    {"depthwise 3x3, 128, 56x56", 128, 128, 3, 1, 56, false, true},
    {"depthwise 3x3, 512, 14x14", 512, 512, 3, 1, 14, false, true},
    {"depthwise 3x3 stride 2, 128, 28x28", 128, 128, 3, 2, 28, false, true},
    {"depthwise 5x5, 128, 28x28", 128, 128, 5, 1, 28, false, true},
};

struct Layer {
    explicit Layer(const Shape& s)
        : shape(s),
          x(s.in * s.plane()),
          weights(static_cast<std::int64_t>(s.out) * s.tapsOfOutput()),
          bias(s.out),
          y(s.outputs()) {
        const int step = s.plain ? 1 : kFastBlock;
        for (int c = 0; c < s.in; ++c)
            for (int h = 0; h < s.kernel; ++h)
                for (int w = 0; w < s.kernel; ++w)
                    taps.push_back(static_cast<std::int32_t>(c / step * step * s.plane() + c % step +
                                                             (h * s.paddedExtent() + w) * step));
    }

    void run(const FastKernels& kernels) {
        if (shape.depthwise)
            for (int block = 0; block < shape.out / kFastBlock; ++block) kernels.depthwise(depthwiseCall(block));
        else
            kernels.product(productCall());
    }

    FastProduct productCall() {
        const int step = shape.plain ? 1 : kFastBlock;
        const bool rowsAreDense = shape.kernel == 1 && shape.stride == 1;
        FastProduct call;
        call.x = x.data(), call.xRow = static_cast<std::ptrdiff_t>(shape.paddedExtent()) * step * shape.stride;
        call.xStep = static_cast<std::ptrdiff_t>(step) * shape.stride;
        call.taps = taps.data(), call.tapCount = shape.tapsOfOutput();
        call.weights = weights.data(), call.bias = bias.data();
        call.y = y.data(), call.yBlock = static_cast<std::ptrdiff_t>(shape.extent) * shape.extent * kFastBlock;
        call.yRow = static_cast<std::ptrdiff_t>(shape.extent) * kFastBlock, call.yStep = kFastBlock;
        call.blocks = shape.out / kFastBlock;
        call.rows = rowsAreDense ? 1 : shape.extent;
        call.pixels = rowsAreDense ? shape.extent * shape.extent : shape.extent;
        call.low = 0.0f, call.high = kInfinity;
        return call;
    }

    FastDepthwise depthwiseCall(int block) {
        FastDepthwise call;
        call.x = x.data() + block * shape.plane() * kFastBlock;
        call.xRow = static_cast<std::ptrdiff_t>(shape.paddedExtent()) * kFastBlock;
        call.weights = weights.data() + block * shape.tapsOfOutput() * kFastBlock;
        call.bias = bias.data() + block * kFastBlock;
        call.yRow = static_cast<std::ptrdiff_t>(shape.extent) * kFastBlock;
        call.y = y.data() + block * shape.extent * call.yRow;
        call.rows = call.pixels = shape.extent;
        call.kernelH = call.kernelW = shape.kernel, call.strideH = call.strideW = shape.stride;
        call.low = 0.0f, call.high = kInfinity;
        return call;
    }

    const Shape shape;
    Aligned x, weights, bias, y;
    std::vector<std::int32_t> taps;
};

}  // namespace

void compareFastKernels() {
    for (const Shape& shape : kShapes)
        for (const FastKernels* kernels : supportedFastKernels()) {
            const auto layer = std::make_shared<Layer>(shape);
            const auto result = std::make_shared<std::vector<float>>(1);
            const std::int64_t steps = shape.outputs() * shape.tapsOfOutput();
            compare("kernel " + std::string(shape.name) + ", " + kernels->name + " / as many steps in registers",
                    {[layer, kernels] { layer->run(*kernels); }, nullptr},
                    {[result, steps, kernels] { result->front() = fuse(steps, *kernels); }, nullptr}, 0);
        }
}
