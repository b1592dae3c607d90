#include "Network.h"

#include "builder/shapes.h"
#include "compare.h"

Network::Network(const std::vector<nolk::TensorShape>& inputs, const Recording& record) {
    nolk::RunnerBuilder* builder = nolk_new_runner_builder(nullptr);
    std::vector<nolk::TensorX*> recorded;
    for (const nolk::TensorShape& shape : inputs) {
        inputs_.push_back(randomFloats(static_cast<std::size_t>(elementCount(shape))));
        in_.push_back({shape, inputs_.back().data()});
        recorded.push_back(builder->input(shape));
    }
    nolk::TensorX* result = record(*builder, recorded);
    const nolk::TensorShape shape = builder->shapeOf(result);
    output_.resize(static_cast<std::size_t>(elementCount(shape)));
    out_ = {shape, output_.data()};
    runner_ = builder->build(&result, 1);
    builder->destroy();
}
