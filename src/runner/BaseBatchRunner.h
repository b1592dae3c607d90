// Splits the tensors of a call along the batch and runs the inner runner once for every sample. Many threads may call
// run: if the inner runner is not thread-safe (isThreadSafe is false), a mutex lets only one call use it at a time.
//   BaseBatchRunner* wrapped = new BaseBatchRunner(runner, 1);  wrapped->run(...);  wrapped->destroy();
// Owns the inner runner from construction to destroy(). If a constructor throws, the caller still owns it.
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

    // True when every sample ran, or when there are none. The first sample that fails ends the call; the outputs of
    // earlier samples stay.
    bool run(nolk::Tensor* inputs, int inputCount, nolk::Tensor* outputs, int outputCount) override;
    void destroy() override;

protected:
    virtual ~BaseBatchRunner() = default;

    // Views of sample `index` of every tensor; none for a null array.
    static std::vector<nolk::Tensor> splitBatch(const nolk::Tensor* tensors, int count, int index);

    // One item per sample of the first input, which alone decides how many there are.
    static std::vector<QueItem> toQueItems(const nolk::Tensor* inputs, int inputCount, const nolk::Tensor* outputs,
                                           int outputCount);

    // Whether there is a first input, which tells the number of items; prints a message to standard error if not.
    static bool hasFirstInput(const nolk::Tensor* inputs, int inputCount);

    nolk::Runner* runner_;
    int batch_;
    std::mutex mutex_;
};
