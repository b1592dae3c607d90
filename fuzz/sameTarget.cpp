// The fast back end against the built-in one, within what rounding explains, and against itself: each instruction set
// that the processor has, one and two threads, to the bit. The bytes are a model file, or calls of a builder.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "builder/RawRunnerBuilder.h"
#include "fast/FastRunnerBuilder.h"
#include "fast/kernels/FastKernels.h"
#include "fuzz/HostRun.h"
#include "fuzz/Network.h"
#include "fuzz/NoisyBuilder.h"
#include "fuzz/Outline.h"
#include "fuzz/target.h"
#include "inspect/ModelFile.h"
#include "inspect/ModelRecords.h"
#include "inspect/OperationLog.h"
#include "inspect/RecordWalk.h"

namespace {

using Runner = nolk::Owned<nolk::Runner>;
using Shapes = std::vector<nolk::TensorShape>;
using Tensors = std::vector<nolk::Tensor>;

class Source {
public:
    Source(const std::uint8_t* data, std::size_t size)
        : isFile_(size > 1 && data[0] == 'C' && data[1] == 'M'),
          ways_(data[isFile_ ? size - 1 : 0]),
          data_(data + (isFile_ ? 0 : 1)),
          size_(size - (isFile_ ? 0 : 1)) {}

    // A number that does not change the network, but for the batch.
    int ways() const { return ways_; }
    int batch() const { return 1 + ways_ % 3; }

    // Makes the calls and gives the outputs to use, while the arrays of the calls exist. A log needs no arrays.
    template <typename Use>
    void record(nolk::RunnerBuilder& builder, Use use, Samples samples = Samples::all) const {
        if (isFile_) {
            const ModelFile file(data_, size_);
            RecordWalk walk(file, batch(), builder, samples);
            while (walk.next())
                if (samples == Samples::one) walk.model().arrays.clear();
            walk.finish();
            use(walk.model().outputs);
        } else {
            Choices choose(data_, size_);
            Network network(choose, batch());
            std::vector<nolk::TensorX*> outputs = network.record(builder);
            use(outputs);
        }
    }

    // Null if the builder refuses the network.
    Runner build(nolk::RunnerBuilder& builder) const {
        Runner runner;
        try {
            record(builder, [&](std::vector<nolk::TensorX*>& outputs) {
                runner.reset(builder.build(outputs.data(), static_cast<int>(outputs.size())));
            });
        } catch (const std::invalid_argument&) {
            return nullptr;
        }
        return runner;
    }

    Runner buildFast(const FastKernels* kernels, int threads) const {
        forceFastKernels(kernels);
        const std::string settings = "spin_us=0,num_threads=" + std::to_string(threads);
        const nolk::Owned<nolk::RunnerBuilder> builder(new FastRunnerBuilder(settings.c_str()));
        Runner runner = build(*builder);
        forceFastKernels(nullptr);
        return runner;
    }

    // Whether the results are defined at all: only then can implementations agree.
    bool isDefined(const OperationLog& log) const {
        if (isFile_) return ModelRecords(ModelFile(data_, size_), batch()).meaningless().empty();
        for (const LoggedOperation& logged : log.operations())
            for (const Diagnostic& diagnostic : logged.diagnostics)
                if (diagnostic.isError) return false;
        return true;
    }

private:
    bool isFile_;
    int ways_;
    const std::uint8_t* data_;
    std::size_t size_;
};

// Whether all values are so small that neither a sum nor a square of them overflows in any order.
bool areModerate(const Tensors& tensors) {
    return std::all_of(tensors.begin(), tensors.end(), [](const nolk::Tensor& tensor) {
        return std::all_of(tensor.data, tensor.data + countOf(tensor), [](float v) { return std::fabs(v) < 1e12f; });
    });
}

// How far noise moves each element of the outputs, for one tensor after the other. False if the values get too large
// for a comparison, or a network with noise cannot be built.
bool addSpread(const Source& source, const OperationLog& log, const Outline& outline, const Tensors& expected,
               std::uint32_t seed, float strength, std::vector<float>& spread) {
    NoisyBuilder builder(log.operations(), seed, strength);
    const Runner runner = source.build(builder);
    if (!runner) return false;
    Shapes shapes = outline.outputs;
    shapes.insert(shapes.end(), builder.addedShapes().begin(), builder.addedShapes().end());
    HostRun noisy(outline.inputs, shapes);
    noisy.fill(tameValues);
    expect(noisy.run(*runner), "a network with noise runs");
    if (!areModerate(noisy.outputs())) return false;
    std::size_t place = 0;
    for (std::size_t i = 0; i < expected.size(); ++i)
        for (std::size_t k = 0, count = countOf(expected[i]); k < count; ++k, ++place)
            spread[place] = std::max(spread[place], std::fabs(noisy.outputs()[i].data[k] - expected[i].data[k]));
    return true;
}

// Whether all elements are as close as the spread of the noisy results lets expect.
bool areClose(const Tensors& actual, const Tensors& expected, const std::vector<float>& spread, bool reports) {
    constexpr float kOwnRounding = 0x1p-20f, kSmallest = 1e-30f;
    std::size_t place = 0;
    for (std::size_t i = 0; i < expected.size(); ++i)
        for (std::size_t k = 0, count = countOf(expected[i]); k < count; ++k, ++place) {
            const float a = actual[i].data[k], e = expected[i].data[k];
            const float tolerance = 16 * spread[place] + kOwnRounding * std::fabs(e) + kSmallest;
            if (std::fabs(a - e) <= tolerance) continue;
            if (reports)
                std::fprintf(stderr, "output %zu, element %zu: %.9g, not %.9g; tolerance %g\n", i, k, a, e, tolerance);
            return false;
        }
    return true;
}

void expectClose(const Source& source, const OperationLog& log, const Outline& outline, nolk::Runner& plain,
                 nolk::Runner& fast) {
    HostRun expected(outline.inputs, outline.outputs), actual(outline.inputs, outline.outputs);
    expected.fill(tameValues);
    actual.fill(tameValues, 1.0f);
    expect(expected.run(plain) && actual.run(fast), "networks run on tame values");
    if (!areModerate(expected.outputs())) return;
    std::size_t count = 0;
    for (const nolk::Tensor& tensor : expected.outputs()) count += countOf(tensor);
    std::vector<float> spread(count);
    const auto add = [&](std::uint32_t seed, float strength) {
        return addSpread(source, log, outline, expected.outputs(), seed, strength, spread);
    };
    if (!add(1, 1.0f) || areClose(actual.outputs(), expected.outputs(), spread, false)) return;
    // The noise of one seed may cancel out by chance, that of many does not.
    for (std::uint32_t seed = 2; seed < 18; ++seed)
        if (!add(seed, seed < 10 ? 1.0f : 8.0f)) return;
    expect(areClose(actual.outputs(), expected.outputs(), spread, true), "both back ends give the same results");
}

// Other instruction sets, and two threads with one of them; a fuzzer takes one of them.
void expectSameBits(const Source& source, const Outline& outline, nolk::Runner& fast) {
    const std::vector<const FastKernels*>& levels = supportedFastKernels();
    HostRun first(outline.inputs, outline.outputs), other(outline.inputs, outline.outputs);
    first.fill(hostileValues);
    expect(first.run(fast), "a network that is built runs");
    const std::size_t count = levels.size(), threaded = static_cast<std::size_t>(source.ways() / 3) % (2 * count - 1);
    for (std::size_t level = 0; level < count; ++level) {
        const int threads = level == threaded ? 2 : 1;
        if (level + 1 == count && threads == 1) continue;
        if (kIsFuzzer && threaded % count != level) continue;
        setFirstValue(NAN);  // what memory holds before a run does not matter, nor what a run leaves in it
        const Runner runner = source.buildFast(levels[level], threads);
        expect(runner != nullptr, "a network is built for every instruction set");
        if (source.ways() & 64) {
            other.fill(notNumbers);
            expect(other.run(*runner), "a network that is built runs");
        }
        other.fill(hostileValues, 1.0f);
        expect(other.runTimed(*runner), "a network that is built runs");
        expect(areSame(first.outputs(), other.outputs()), "instruction sets and threads do not change a bit");
    }
    setFirstValue(0.0f);
}

void compare(const Source& source) {
    OperationLog log;
    Outline outline;
    const auto takeOutline = [&](const std::vector<nolk::TensorX*>& outputs) { outline = outlineOf(log, outputs); };
    source.record(log, takeOutline, Samples::one);
    if (!outline.isHarmless) return;

    // A fuzzer makes one of the comparisons in an execution, so that there are more executions.
    const bool isClose = (source.ways() & 128) != 0;
    const Runner fast = source.buildFast(supportedFastKernels().back(), 1);
    if (fast && (!kIsFuzzer || !isClose)) expectSameBits(source, outline, *fast);
    if (kIsFuzzer && !isClose) return;
    const nolk::Owned<nolk::RunnerBuilder> builder(new RawRunnerBuilder(nullptr));
    const Runner plain = source.build(*builder);
    expect((plain != nullptr) == (fast != nullptr), "both back ends refuse the same networks");
    if (plain && source.isDefined(log)) expectClose(source, log, outline, *plain, *fast);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    try {
        compare(Source(data, size));
    } catch (const nolk::ModelError&) {
        // A file that cannot be read.
    } catch (const std::bad_alloc&) {
        // A tensor that no memory can hold.
    }
    forceFastKernels(nullptr);
    setFirstValue(0.0f);
    dropMessages();
    return 0;
}
