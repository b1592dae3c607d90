// One sample of a batch call, on its way from the caller to the inner runner and back.
#pragma once

#include <nolk.h>

#include <atomic>
#include <cstdint>
#include <vector>

struct QueItem {
    std::vector<nolk::Tensor> inputs;   // views, of batch 1, into the caller's tensors
    std::vector<nolk::Tensor> outputs;  // likewise
    // 1 when finished. Stored last, with release order, because the caller may free the item as soon as it is 1.
    std::atomic<std::int32_t> state{0};
    bool ok = false;  // what the run with this item returned; valid once state is 1
};
