#include "fast/layers/FastElementwiseLayer.h"

void FastElementwiseLayer::run(const FastRun& run) const {
    const nolk::TensorShape& s = output_.shape;
    if (output_.layout == FastLayout::plain && s.h == 1 && s.w == 1) {
        for (int n = 0; n < s.n; ++n) steps_.applyChannels(run, n, &input_);
        return;
    }
    const int planes = output_.strides.planes;
    run.team.forEach(s.n * planes, 2 * output_.strides.plane, [&](int task) {
        const int n = task / planes, plane = task % planes;
        steps_.applyRows(run, n, plane, 0, s.h, &input_);
        output_.clearBorder(output_.plane(run, n, plane), 0, s.h);
    });
}
