// Runs a built-in layer, for operations, shapes and settings that no layer of ours takes; its tensors are plain.
// Built-in layers are bound to addresses, so each arena has its own, which FastRunner makes with the arena:
//   arena.builtIn.push_back(layer.make(arena));
// They use one thread and the arena's scratch memory, and round as the built-in implementation does.
#pragma once

#include <algorithm>
#include <utility>

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"

class FastBuiltInLayer final : public FastLayer {
public:
    // Floats that the layers of an arena may want while they run: the tables of a resize.
    static constexpr int kScratch = 32 * 1024;

    // index: of the layer in FastArena::builtIn.
    FastBuiltInLayer(FastBuiltIn op, std::vector<FastView> inputs, const FastView& output, std::size_t index)
        : op_(std::move(op)), inputs_(std::move(inputs)), output_(output), index_(index) {}

    // What the layer leaves unwritten is zero, and nothing of an earlier run.
    void run(const FastRun& run) const override {
        std::fill_n(output_.base(run), op_.outputFloats, 0.0f);
        run.arena.builtIn[index_]->run(run.arena.scratch);
    }

    // The layer for an arena whose memory has its final place.
    std::unique_ptr<Layer> make(const FastArena& arena) const;

private:
    FastBuiltIn op_;
    std::vector<FastView> inputs_;
    FastView output_;
    std::size_t index_;
};
