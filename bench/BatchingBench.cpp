#include <nolk.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "benches.h"
#include "compare.h"

namespace {

constexpr int kBatch = 16;
constexpr int kCalls = 32;  // calls by each caller in one measured run

struct Destroy {
    void operator()(nolk::Runner* runner) const { runner->destroy(); }
};
using OwnedRunner = std::unique_ptr<nolk::Runner, Destroy>;

OwnedRunner digits(int batch) {
    nolk::RunnerBuilder* builder = nolk_new_runner_builder(nullptr);
    nolk::ModelReader* reader = nolk_new_model_reader();
    OwnedRunner runner(reader->readFromFile(builder, batch, DIGITS_MODEL));
    builder->destroy();
    reader->destroy();
    if (!runner) std::exit(1);
    return runner;
}

OwnedRunner wrapped() { return OwnedRunner(nolk_wrap_batch_runner(digits(kBatch).release(), kBatch)); }

void call(nolk::Runner& runner, int batch) {
    std::vector<float> pixels(static_cast<std::size_t>(batch) * 784, 0.5f),
        scores(static_cast<std::size_t>(batch) * 10);
    nolk::Tensor in{{batch, 1, 28, 28, 3}, pixels.data()}, out{{batch, 10, 1, 1, 1}, scores.data()};
    if (!runner.run(&in, 1, &out, 1)) std::exit(1);
}

void fromThreads(int callers, const std::function<void()>& once) {
    std::vector<std::thread> threads;
    for (int t = 0; t < callers; ++t)
        threads.emplace_back([&once] {
            for (int i = 0; i < kCalls; ++i) once();
        });
    for (std::thread& t : threads) t.join();
}

}  // namespace

// Compares callers that share a batch runner with callers that share a plain runner and a mutex.
void compareBatching() {
    for (const int callers : {1, 2, 8, 64}) {
        const auto shared = std::make_shared<OwnedRunner>(wrapped());
        const auto alone = std::make_shared<OwnedRunner>(digits(1));
        const auto mutex = std::make_shared<std::mutex>();
        const auto batched = [shared, callers] { fromThreads(callers, [&] { call(**shared, 1); }); };
        const auto locked = [alone, mutex, callers] {
            fromThreads(callers, [&] {
                const std::lock_guard<std::mutex> lock(*mutex);
                call(**alone, 1);
            });
        };
        compare("digits, " + std::to_string(callers) + " callers, batch " + std::to_string(kBatch) + " / mutex",
                {batched, nullptr}, {locked, nullptr}, 0, callers * kCalls);
    }
    // A single caller waits for the batch to fill, at most as long as one run takes, and then for its run.
    const auto shared = std::make_shared<OwnedRunner>(wrapped());
    const auto batch = std::make_shared<OwnedRunner>(digits(kBatch));
    compare("lone caller of a batch runner / two runs of its batch", {[shared] { call(**shared, 1); }, nullptr},
            {[batch] {
                 call(**batch, kBatch);
                 call(**batch, kBatch);
             },
             nullptr},
            0, 1);
}
