#include "fast/FastRunner.h"

#include <chrono>
#include <utility>

#include "builder/shapes.h"
#include "fast/FastSettings.h"
#include "fast/hugePages.h"
#include "fast/layers/FastBuiltInLayer.h"
#include "fast/layers/FastCopyLayer.h"
#include "fast/makeLayers.h"
#include "runner/checkTensors.h"

#ifdef NOLK_SEPARATE_TENSORS
#include <sanitizer/asan_interface.h>

#include "memory/MemoryPool.h"
#endif

namespace {

std::int64_t nanoseconds() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// By a task that copies a plane or a block of planes.
std::int64_t copiedFloats(const FastView& host) { return host.strides.plane * 4; }

FastView hostView(const nolk::TensorShape& shape) {
    FastView view;
    view.shape = shape;
    view.strides = FastStrides(shape, FastLayout::plain, {});
    return view;
}

}  // namespace

FastRunner::FastRunner(FastGraph graph, const FastPlan& plan, const FastSettings& settings, FloatArrays& given)
    : kernels_(fastKernels()),
      arenaFloats_(plan.floats),
      constants_(std::move(graph.constants)),
      team_(settings.numThreads, settings.spinUs) {
#ifdef NOLK_SEPARATE_TENSORS
    gaps_ = plan.gaps;
#endif
    for (const int input : graph.inputs) {
        inputs_.push_back(plan.views[static_cast<std::size_t>(input)]);
        inputShapes_.push_back(inputs_.back().shape);
    }
    for (const int output : graph.outputs) {
        outputs_.push_back(plan.views[static_cast<std::size_t>(output)]);
        outputShapes_.push_back(outputs_.back().shape);
    }
    layers_ = makeLayers(graph, plan, settings.numThreads, given);
    for (int i = 0; i < settings.arenas; ++i) freeArenas_.push_back(newArena());
}

void FastRunner::destroy() { delete this; }

bool FastRunner::run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) {
    return compute(inputs, inputCount, outputs, outputCount, nullptr);
}

nolk::LayerDescription FastRunner::layer(std::int32_t index) const {
    const FastLayer& layer = *layers_[static_cast<std::size_t>(index)];
    return {layer.kind.c_str(), layer.outputShape, layer.recordedCall};
}

bool FastRunner::runTimed(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount,
                          std::int64_t* times) {
    return compute(inputs, inputCount, outputs, outputCount, times);
}

// Records times, if there is a place for them, as runTimed describes them.
bool FastRunner::compute(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount,
                         std::int64_t* times) {
    if (!tensorsMatch(inputs, inputCount, inputShapes_) || !tensorsMatch(outputs, outputCount, outputShapes_))
        return false;
    const auto record = [&times] {
        if (times) *times++ = nanoseconds();
    };
    record();
    std::unique_ptr<FastArena> arena = takeArena();
    FastTeam::Session team(team_);
    const FastRun run{*arena, team, kernels_};
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        if (elementCount(inputShapes_[i]) == 0) continue;
        const FastView host = hostView(inputShapes_[i]);
        const int planes = planesToCopy(host, inputs_[i]);
        team.forEach(host.shape.n * planes, copiedFloats(host), [&](int task) {
            copyPlanes(kernels_, host, inputs[i].data, inputs_[i], inputs_[i].base(run), task / planes, task % planes,
                       task % planes + 1);
        });
    }
    record();
    for (const auto& layer : layers_) {
        layer->run(run);
        record();
    }
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        if (elementCount(outputShapes_[i]) == 0) continue;
        const FastView host = hostView(outputShapes_[i]);
        const int planes = planesToCopy(outputs_[i], host);
        team.forEach(host.shape.n * planes, copiedFloats(host), [&](int task) {
            copyPlanes(kernels_, outputs_[i], outputs_[i].base(run), host, outputs[i].data, task / planes,
                       task % planes, task % planes + 1);
        });
    }
    giveBack(std::move(arena));
    return true;
}

std::unique_ptr<FastArena> FastRunner::newArena() const {
    auto arena = std::make_unique<FastArena>();
    arena->floats = zerosInHugePages(static_cast<std::size_t>(arenaFloats_));
#ifdef NOLK_SEPARATE_TENSORS
    std::fill_n(arena->floats.data(), arena->floats.size(), MemoryPool::firstValue);
    for (const std::int64_t gap : gaps_)
        ASAN_POISON_MEMORY_REGION(arena->floats.data() + gap, kFastGap * sizeof(float));
#endif
    for (const auto& layer : layers_)
        if (const auto* builtIn = dynamic_cast<const FastBuiltInLayer*>(layer.get()))
            arena->builtIn.push_back(builtIn->make(*arena));
    if (!arena->builtIn.empty()) arena->scratch.growTo(FastBuiltInLayer::kScratch);
    return arena;
}

std::unique_ptr<FastArena> FastRunner::takeArena() {
    {
        const std::lock_guard lock(mutex_);
        if (!freeArenas_.empty()) {
            std::unique_ptr<FastArena> arena = std::move(freeArenas_.back());
            freeArenas_.pop_back();
            return arena;
        }
    }
    return newArena();
}

void FastRunner::giveBack(std::unique_ptr<FastArena> arena) {
    const std::lock_guard lock(mutex_);
    freeArenas_.push_back(std::move(arena));
}
