// The runner of one network on the fast back end. Any number of threads may run it at once: each run has an arena of
// its own. As many arenas as the settings say are made with the runner, so that a run allocates nothing; a further one
// is made when more runs than ever before are in progress, and kept.
#pragma once

#include <nolk.h>
#include <nolk_layers.h>

#include <memory>
#include <mutex>
#include <vector>

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"
#include "fast/planMemory.h"
#include "memory/FloatArrays.h"

struct FastSettings;

class FastRunner final : public nolk::Runner, public nolk::LayeredRunner {
public:
    // graph: after all passes; plan: of its memory. Packs the weights, and frees those of `given`. Throws
    // std::bad_alloc, and std::system_error when a thread cannot be started.
    FastRunner(FastGraph graph, const FastPlan& plan, const FastSettings& settings, FloatArrays& given);
    virtual ~FastRunner() = default;

    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override;
    void destroy() override;
    bool isThreadSafe() override { return true; }

    std::int32_t layerCount() const override { return static_cast<std::int32_t>(layers_.size()); }
    nolk::LayerDescription layer(std::int32_t index) const override;
    bool runTimed(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount,
                  std::int64_t* times) override;

    // For programs that examine a network: the floats of one arena.
    std::int64_t arenaFloats() const { return arenaFloats_; }

private:
    bool compute(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount, std::int64_t* times);
    std::unique_ptr<FastArena> newArena() const;
    std::unique_ptr<FastArena> takeArena();
    void giveBack(std::unique_ptr<FastArena> arena);

    // fixed after construction
    const FastKernels& kernels_;
    std::int64_t arenaFloats_;
#ifdef NOLK_SEPARATE_TENSORS
    std::vector<std::int64_t> gaps_;
#endif
    std::vector<FastView> inputs_, outputs_;
    std::vector<nolk::TensorShape> inputShapes_, outputShapes_;
    std::vector<FloatBuffer> constants_;
    std::vector<std::unique_ptr<FastLayer>> layers_;

    FastTeam team_;

    // guarded by mutex_
    std::mutex mutex_;
    std::vector<std::unique_ptr<FastArena>> freeArenas_;
};
