// One sample of a batch call, on its way from the caller to the inner runner and back.
#pragma once

#include <nolk.h>

#include <atomic>
#include <cstdint>
#include <vector>

struct QueItem {
    std::vector<nolk::Tensor> inputs;   // views, of batch 1, into the caller's tensors
    std::vector<nolk::Tensor> outputs;  // likewise
    std::atomic<std::int32_t> state{
        0};           // 1: finished. Stored last, with release order: the caller may free the item then
    bool ok = false;  // what the run with this item returned; valid once state is 1
};
