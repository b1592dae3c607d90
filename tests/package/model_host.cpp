// A host of the companion library: writes a network, checks it, looks at it and runs it.
#include <nolk_model.h>

#include <cstdio>

int main() {
    const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter();
    nolk::TensorX* y = writer->abs(writer->input({1, 2, 1, 1, 1}));
    writer->build(&y, 1);
    const auto& file = writer->bytes();
    if (!nolk::checkModel(file.data(), file.size()).findings.empty()) return 1;
    if (nolk::inspectModel(file.data(), file.size()).layers.size() != 1) return 2;
    try {
        nolk::loadModel(file.data(), file.size(), 1, nullptr, {1});
        return 3;
    } catch (const nolk::LimitExceeded& e) {
        std::puts(e.what());
    }
    float in[] = {-1, 2}, out[2] = {};
    nolk::Tensor input{{1, 2, 1, 1, 1}, in}, output{{1, 2, 1, 1, 1}, out};
    return nolk::loadModel(file.data(), file.size(), 1)->run(&input, 1, &output, 1) && out[0] == 1 ? 0 : 4;
}
