// The runner that many threads share: calls of all sizes, inner runners that fail or throw, and its end while a caller
// is inside.
#include <nolk.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include "fuzz/Choices.h"
#include "fuzz/target.h"

namespace {

constexpr int kMostCalls = 4, kMostThreads = 3, kMostItems = 5;

// Shared by the inner runner, which belongs to the wrapper, and the callers.
struct Stage {
    std::atomic<unsigned> failures{0};  // bit i: run i fails
    std::atomic<unsigned> throws{0};    // bit i: run i throws
    std::atomic<int> runs{0};
    std::atomic<bool> waits{false};      // the next runs wait until the wrapper is about to be destroyed
    std::atomic<bool> isEntered{false};  // one of them has begun
    std::atomic<bool> mayLeave{false};
    std::atomic<bool> isDestroyed{false};
};

// y = 2 x + 1 for every element.
class Inner final : public nolk::Runner {
public:
    explicit Inner(Stage& stage) : stage_(stage) {}
    virtual ~Inner() { stage_.isDestroyed = true; }

    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override {
        if (stage_.waits) {
            stage_.isEntered = true;
            while (!stage_.mayLeave) std::this_thread::yield();
        }
        const int run = stage_.runs++ % 32;
        if (stage_.throws >> run & 1u) throw std::runtime_error("inner runner");
        if (stage_.failures >> run & 1u || inputCount != outputCount) return false;
        for (int i = 0; i < inputCount; ++i) {
            const int count = sizeOf(inputs[i].shape);
            if (count != sizeOf(outputs[i].shape) || !inputs[i].data || !outputs[i].data) return false;
            for (int k = 0; k < count; ++k) outputs[i].data[k] = 2.0f * inputs[i].data[k] + 1.0f;
        }
        return true;
    }

    void destroy() override { delete this; }

    static int sizeOf(const nolk::TensorShape& s) { return s.n * s.c * s.h * s.w; }

private:
    Stage& stage_;
};

struct CallPlan {
    int items = 0, tensors = 1, channels = 1, outputChannels = 1;
    bool isBroken = false;  // without data
};

struct HostTensors {
    HostTensors(int tensorCount, int items, int channels, float first) {
        for (int i = 0; i < tensorCount; ++i) {
            const int count = items * channels;
            storage.push_back(std::make_unique<float[]>(static_cast<std::size_t>(count)));
            for (int k = 0; k < count; ++k) storage.back()[k] = first + static_cast<float>(16 * i + k);
            tensors.push_back({{items, channels, 1, 1, 1}, storage.back().get()});
        }
        tensors.reserve(tensors.size() + 1);  // not null without tensors
    }

    std::vector<nolk::Tensor> tensors;
    std::vector<std::unique_ptr<float[]>> storage;
};

void call(nolk::Runner& runner, const CallPlan& plan, float first, int batch, const Stage& stage) {
    HostTensors in(plan.tensors, plan.items, plan.channels, first);
    HostTensors out(plan.tensors, plan.items, plan.outputChannels, 0);
    if (plan.isBroken && !in.tensors.empty()) in.tensors.back().data = nullptr;
    const bool ok = runner.run(in.tensors.data(), plan.tensors, out.tensors.data(), plan.tensors);
    // A call returns the result of the run with its first item; with failing runs, others may be missing.
    const bool isWhole = ok && !plan.isBroken && stage.failures == 0 && stage.throws == 0;
    if (!ok || plan.items == 0 || plan.channels != plan.outputChannels) return;
    const int certain = isWhole ? plan.items : batch > 0 ? 1 : 0;
    for (int i = 0; i < plan.tensors && !plan.isBroken; ++i)
        for (int k = 0; k < certain * plan.channels; ++k)
            expect(out.storage[i][k] == 2.0f * in.storage[i][k] + 1.0f, "every caller gets its own answer");
}

CallPlan planFrom(Choices& choose) {
    CallPlan plan;
    plan.items = choose.below(kMostItems + 1);
    plan.tensors = choose.oneIn(8) ? choose.below(3) : 1;
    plan.channels = choose.oneIn(4) ? choose.below(4) : 2;
    plan.outputChannels = choose.oneIn(8) ? choose.below(4) : plan.channels;
    plan.isBroken = choose.oneIn(16);
    return plan;
}

// The wrapper's end while a call is inside: certainly so, since its run has begun and waits.
void destroyWithCallerInside(nolk::Runner& runner, Stage& stage) {
    stage.waits = true;
    std::atomic<bool> hasReturned{false};
    std::thread caller([&] {
        CallPlan plan;
        plan.items = 1;
        plan.channels = plan.outputChannels = 2;
        HostTensors in(1, 1, 2, 1), out(1, 1, 2, 0);
        runner.run(in.tensors.data(), 1, out.tensors.data(), 1);
        hasReturned = true;
    });
    while (!stage.isEntered && !hasReturned) std::this_thread::yield();
    std::thread leaver([&] { stage.mayLeave = true; });
    runner.destroy();
    leaver.join();
    caller.join();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices choose(data, size);
    Stage stage;
    const int batch = choose.oneIn(32) ? choose.edge() : choose.below(5);
    if (choose.below(2) == 1) stage.failures = choose.bits(2);
    if (choose.oneIn(4)) stage.throws = choose.bits(1);
    if (batch == 1) stage.throws = 0;  // an exception reaches the caller
    const bool endsWithCallerInside = batch > 1 && choose.oneIn(4);
    if (batch > 1 << 16) return 0;  // a batch that takes much memory

    auto inner = std::make_unique<Inner>(stage);
    nolk::Runner* const runner = nolk_wrap_batch_runner(inner.get(), batch);
    expect((runner != nullptr) == (batch >= 1), "a batch of at least 1 can be wrapped");
    if (!runner) return 0;
    inner.release();

    std::vector<std::thread> callers;
    const int threads = choose.below(kMostThreads) + 1;
    std::vector<std::vector<CallPlan>> plans(static_cast<std::size_t>(threads));
    for (auto& calls : plans)
        for (int i = choose.below(kMostCalls) + 1; i > 0; --i) calls.push_back(planFrom(choose));
    for (std::size_t t = 1; t < plans.size(); ++t)
        callers.emplace_back([&, t] {
            for (const CallPlan& plan : plans[t]) call(*runner, plan, static_cast<float>(100 * t), batch, stage);
        });
    for (const CallPlan& plan : plans[0]) call(*runner, plan, 7, batch, stage);
    for (std::thread& caller : callers) caller.join();

    if (endsWithCallerInside)
        destroyWithCallerInside(*runner, stage);
    else
        runner->destroy();
    expect(stage.isDestroyed, "a wrapper destroys its runner");
    return 0;
}
