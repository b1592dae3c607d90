// Cuts the tensors of a call along the batch and runs the inner runner once for every sample. Many threads may call
// run: where the inner runner needs it (isThreadSafe is false), a mutex keeps it for one call at a time.
//   BaseBatchRunner* wrapped = new BaseBatchRunner(runner, 1);  wrapped->run(...);  wrapped->destroy();
// Owns the inner runner from construction to destroy(); when a constructor throws, it stays the caller's.
#pragma once

#include <nolk.h>

#include <mutex>
#include <vector>

#include "runner/QueItem.h"

class BaseBatchRunner : public nolk::Runner {
public:
    BaseBatchRunner(nolk::Runner* runner, int batch) : runner_(runner), batch_(batch) {}
    BaseBatchRunner(const BaseBatchRunner&) = delete;
    BaseBatchRunner& operator=(const BaseBatchRunner&) = delete;

    // True when every sample ran, also for none. The first that fails ends the call; outputs of those before it stand.
    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override;
    void destroy() override;

protected:
    virtual ~BaseBatchRunner() = default;

    // Views of sample `index` of every tensor; none for a null array.
    static std::vector<nolk::Tensor> splitBatch(const nolk::Tensor* tensors, int count, int index);

    // One item per sample of the first input, which alone decides how many there are.
    static std::vector<QueItem> toQueItems(const nolk::Tensor* inputs, int inputCount, const nolk::Tensor* outputs,
                                           int outputCount);

    // Whether there is a first input, which tells the number of items; if not, says so on standard error.
    static bool hasFirstInput(const nolk::Tensor* inputs, int inputCount);

    nolk::Runner* runner_;
    int batch_;
    std::mutex mutex_;
};
