// A separate file, compiled for every processor, because this code runs as soon as the library is loaded.
#include "runner/batchWaitFactor.h"

#include <cstdlib>

namespace {

float readWaitFactor() {
    const char* text = std::getenv("nolk_batch_wait_factor");
    return text ? static_cast<float>(std::strtod(text, nullptr)) : 1.0f;
}

}  // namespace

const float nolk_batch_wait_factor = readWaitFactor();
