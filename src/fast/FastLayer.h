// A step of a network that the fast back end runs, and what it gets for a run.
//   for (const std::unique_ptr<FastLayer>& layer : layers) layer->run({arena, session, kernels});
// Layers keep no state, so that any number of runs may use them at once; all that a run changes lies in its arena. They
// divide their work among the threads of the session themselves; how it is divided changes no result. A run checks
// nothing: shapes were checked when the network was built.
#pragma once

#include <nolk.h>

#include <memory>
#include <string>
#include <vector>

#include "fast/FastLayout.h"
#include "fast/FastTeam.h"
#include "fast/kernels/FastKernels.h"
#include "layers/Layer.h"
#include "memory/AlignedMemory.h"

// The memory of one run. A built-in layer is bound to its tensors, so each arena has its own.
struct FastArena {
    AlignedMemory<float> floats{kFastBlock};
    std::vector<std::unique_ptr<Layer>> builtIn;
    AlignedMemory<float> scratch{kFastBlock};  // of the built-in layers
};

struct FastRun {
    FastArena& arena;
    FastTeam::Session& team;
    const FastKernels& kernels;
};

// Where a tensor lies: in the arena of a run, or constant.
struct FastView {
    nolk::TensorShape shape;
    FastLayout layout = FastLayout::plain;
    FastBorder border;
    FastStrides strides;
    std::ptrdiff_t offset = 0;        // of its first plane in the arena
    const float* constant = nullptr;  // instead

    // The first pixel of a plane.
    float* plane(const FastRun& run, std::ptrdiff_t sample, std::ptrdiff_t index) const {
        return base(run) + sample * strides.sample + index * strides.plane + strides.origin(border);
    }
    // Constants are only read.
    float* base(const FastRun& run) const {
        return constant ? const_cast<float*>(constant) : run.arena.floats.data() + offset;
    }

    // Whether the pixels of a plane follow each other without a gap.
    bool isDense() const { return border.isEmpty(); }

    // Writes zeros around the rows [begin, end) of a plane, and above the first and below the last row of the plane.
    void clearBorder(float* plane, int begin, int end) const;
};

class FastLayer {
public:
    virtual ~FastLayer() = default;
    virtual void run(const FastRun& run) const = 0;

    std::string kind;  // for example "conv"
    nolk::TensorShape outputShape;
    int recordedCall = -1;  // see nolk::LayerDescription
};
