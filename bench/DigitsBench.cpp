#include <nolk.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bareProduct.h"
#include "benches.h"
#include "compare.h"
#include "compareLevels.h"

namespace {

struct DigitsNet {
    explicit DigitsNet(int batchSize)
        : batch(batchSize),
          pixels(randomFloats(static_cast<std::size_t>(batch) * 784)),
          scores(static_cast<std::size_t>(batch) * 10) {
        nolk::RunnerBuilder* builder = nolk_new_runner_builder(nullptr);
        nolk::ModelReader* reader = nolk_new_model_reader();
        runner = reader->readFromFile(builder, batch, DIGITS_MODEL);
        builder->destroy();
        reader->destroy();
        if (!runner) std::exit(1);
    }
    ~DigitsNet() { runner->destroy(); }
    DigitsNet(const DigitsNet&) = delete;
    DigitsNet& operator=(const DigitsNet&) = delete;

    void run() {
        nolk::Tensor in{{batch, 1, 28, 28, 3}, pixels.data()}, out{{batch, 10, 1, 1, 1}, scores.data()};
        if (!runner->run(&in, 1, &out, 1)) std::exit(1);
    }

    int batch;
    std::vector<float> pixels, scores;
    nolk::Runner* runner = nullptr;
};

}  // namespace

void compareDigits() {
    for (const int batch : {1, 16}) {
        const auto net = std::make_shared<DigitsNet>(batch);
        // The largest of the operands has 144 * 196 values for an image.
        const auto operands = std::make_shared<std::vector<float>>(randomFloats(64 * 1568));
        const auto result = std::make_shared<std::vector<float>>(std::size_t{32} * 784);
        const auto bare = [operands, result, batch] {
            const float* values = operands->data();
            for (int i = 0; i < batch; ++i) {
                bareProduct(values, values, result->data(), 16, 9, 784);
                bareProduct(values, values, result->data(), 32, 144, 196);
            }
            bareProduct(values, values, result->data(), batch, 1568, 64);
            bareProduct(values, values, result->data(), batch, 64, 10);
        };
        compare("digits network, batch " + std::to_string(batch), {[net] { net->run(); }, nullptr}, {bare, nullptr}, 0,
                batch);
        compareLevels("digits network, batch " + std::to_string(batch), [net] { net->run(); });
    }
}
