// Many threads share one network in two ways: through a batch runner, which gathers their calls into batches, and
// through a plain runner behind a mutex. Prints throughput and latency of both. Uses only nolk's public header.
#include <nolk.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPixels = 28 * 28;

struct Destroy {
    void operator()(nolk::Runner* runner) const { runner->destroy(); }
};
using OwnedRunner = std::unique_ptr<nolk::Runner, Destroy>;

OwnedRunner loadModel(const std::string& path, int batch) {
    nolk::ModelReader* reader = nolk_new_model_reader();
    nolk::RunnerBuilder* builder = nolk_new_runner_builder(nullptr);
    char reason[256];
    if (!reader || !builder) {
        nolk_pop_error_message(reason, sizeof reason);
        throw std::runtime_error(reason);
    }
    OwnedRunner runner(reader->readFromFile(builder, batch, path.c_str()));
    builder->destroy();
    reader->destroy();
    if (runner) return runner;
    nolk_pop_error_message(reason, sizeof reason);
    throw std::runtime_error(path + ": " + (*reason ? reason : "empty or damaged"));
}

bool classify(nolk::Runner& runner, std::vector<float>& pixels, float* scores) {
    nolk::Tensor in{{1, 1, 28, 28, 3}, pixels.data()};
    nolk::Tensor out{{1, 10, 1, 1, 1}, scores};
    return runner.run(&in, 1, &out, 1);
}

// Every thread starts its next call as soon as the previous one returns.
void measure(const char* name, int threads, int calls,
             const std::function<bool(std::vector<float>& pixels, float* scores)>& call) {
    std::vector<std::vector<double>> microseconds(static_cast<std::size_t>(threads));
    std::vector<std::thread> callers;
    std::atomic<bool> failed{false};
    const Clock::time_point start = Clock::now();
    for (auto& own : microseconds)
        callers.emplace_back([&own, &call, &failed, calls] {
            std::vector<float> pixels(kPixels, 0.5f);
            float scores[10];
            for (int i = 0; i < calls; ++i) {
                const Clock::time_point begin = Clock::now();
                if (!call(pixels, scores)) failed = true;
                own.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
            }
        });
    for (std::thread& t : callers) t.join();
    if (failed) throw std::runtime_error("a call failed");
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

    std::vector<double> all;
    for (const auto& own : microseconds) all.insert(all.end(), own.begin(), own.end());
    std::sort(all.begin(), all.end());
    std::printf("%-12s %10.0f %12.0f %12.0f\n", name, static_cast<double>(all.size()) / seconds, all[all.size() / 2],
                all[all.size() * 99 / 100]);
}

}  // namespace

// batching [THREADS [CALLS [MODEL]]]
int main(int argc, char** argv) try {
    const int threads = argc > 1 ? std::atoi(argv[1]) : 16;
    const int calls = argc > 2 ? std::atoi(argv[2]) : 200;
    const std::string model = argc > 3 ? argv[3] : DIGITS_MODEL;
    if (threads < 1 || calls < 1) throw std::runtime_error("usage: batching [THREADS [CALLS [MODEL]]]");

    std::printf("%d threads, %d calls each\n%-12s %10s %12s %12s\n", threads, calls, "", "images/s", "median, us",
                "99th, us");
    std::mutex mutex;
    const OwnedRunner alone = loadModel(model, 1);
    measure("mutex", threads, calls, [&](std::vector<float>& pixels, float* scores) {
        const std::lock_guard<std::mutex> lock(mutex);
        return classify(*alone, pixels, scores);
    });
    for (const int batch : {1, 4, 16}) {
        // The wrapper owns the inner runner.
        const OwnedRunner shared(nolk_wrap_batch_runner(loadModel(model, batch).release(), batch));
        measure(("batch of " + std::to_string(batch)).c_str(), threads, calls,
                [&](std::vector<float>& pixels, float* scores) { return classify(*shared, pixels, scores); });
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "batching: %s\n", error.what());
    return 1;
}
