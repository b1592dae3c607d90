// Element-wise steps that a layer applies to what it has just computed, while it is still in the cache.
//   FastSteps steps(node.steps, plan.views, output);  steps.applyRows(run, n, plane, 0, rows);
#pragma once

#include <vector>

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"

class FastSteps {
public:
    FastSteps() = default;
    // views: of all values of the graph.
    FastSteps(const std::vector<FastNodeStep>& steps, const std::vector<FastView>& views, const FastView& output);

    bool empty() const { return steps_.empty(); }

    // Whether all operands have planes without gaps, so that rows can be taken together.
    bool operandsAreDense() const;

    // Applies all steps to `pixels` pixels of a row of the output. If x is given, the first step reads x instead of the
    // output. Pixels may go on in the next rows if all planes are dense.
    void apply(const FastRun& run, int sample, int plane, int row, int pixel, int pixels,
               const FastView* x = nullptr) const;

    // The same for all pixels of some rows.
    void applyRows(const FastRun& run, int sample, int plane, int firstRow, int rows,
                   const FastView* x = nullptr) const;

    // The same for all channels of a plain output whose planes are single elements.
    void applyChannels(const FastRun& run, int sample, const FastView* x = nullptr) const;

private:
    struct Step {
        FastStep step;
        FastOperandKind kind;
        FastView operand;
        FastChannelValues first, second;
    };

    void set(FastStepCall& call, const Step& step, const FastRun& run, int sample, int plane, int row, int pixel) const;

    std::vector<Step> steps_;
    FastView output_;
};

// What a layer of sums of products does at the end of a sum: adds another tensor, limits the result, and the rest.
struct FastEpilogue {
    FastEpilogue(const FastNode& node, const std::vector<FastView>& views, const FastView& output);

    bool hasAdded = false;
    FastView added;
    float low, high;
    FastSteps rest;

    bool isDense() const { return (!hasAdded || added.isDense()) && rest.operandsAreDense(); }
};
