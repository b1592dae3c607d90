// A file of its own since it runs as soon as the library is loaded, on whatever processor.
#include "runner/batchWaitFactor.h"

#include <cstdlib>

namespace {

float readWaitFactor() {
    const char* text = std::getenv("nolk_batch_wait_factor");
    return text ? static_cast<float>(std::strtod(text, nullptr)) : 1.0f;
}

}  // namespace

const float nolk_batch_wait_factor = readWaitFactor();
