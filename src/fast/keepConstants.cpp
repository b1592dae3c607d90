#include "fast/keepConstants.h"

#include <cstring>
#include <iterator>
#include <map>

namespace {

// 1 if all samples are equal, as they are in networks from files; else their number.
int differingSamples(const FastValue& value) {
    const std::ptrdiff_t floats = FastStrides(value.shape, FastLayout::plain, {}).sample;
    const std::size_t bytes = static_cast<std::size_t>(floats) * sizeof(float);
    for (int n = 1; n < value.shape.n; ++n)
        if (std::memcmp(value.constant, value.constant + n * floats, bytes) != 0) return value.shape.n;
    return 1;
}

}  // namespace

double keepConstants(FastGraph& graph, std::vector<FloatBuffer>& constants, FloatArrays& given,
                     std::vector<FloatBuffer>& unread) {
    std::map<const float*, double> read;   // floats of each constant that is read while the network runs
    std::map<const float*, int> packings;  // how many matMuls pack it
    const auto keep = [&](int value) {
        const FastValue& v = graph.at(value);
        if (v.constant) read[v.constant] = static_cast<double>(FastStrides(v.shape, v.layout, {}).sample) * v.shape.n;
    };
    for (FastNode& node : graph.nodes) {
        auto* const matmul = std::get_if<FastMatmul>(&node.operation);
        if (matmul && graph.at(node.inputs.back()).constant) {
            const FastValue& b = graph.at(node.inputs.back());
            *matmul = {b.constant, differingSamples(b)};
            node.inputs.pop_back();
            ++packings[b.constant];
        }
        forEachSource(node, keep);
    }
    for (const int output : graph.outputs) keep(output);

    std::move(graph.constants.begin(), graph.constants.end(), std::back_inserter(constants));
    graph.constants.clear();
    double floats = 0.0;
    for (FloatBuffer& array : constants) {
        const auto found = read.find(array.get());
        const int packed = packings.count(array.get()) > 0 ? packings[array.get()] : 0;
        if (found != read.end()) {
            floats += found->second;
            graph.constants.push_back(std::move(array));
        } else if (packed == 1) {
            given.add(std::move(array));
        } else if (packed == 0) {
            unread.push_back(std::move(array));
        }
    }
    return floats;
}
