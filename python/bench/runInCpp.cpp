// Runs the digits network from C++, for overhead.py to compare with.
#include <nolk_model.h>

#include <chrono>
#include <cstdint>

extern "C" {

// Null when the model cannot be loaded.
NOLK_API nolk::Runner* loadRunner(const void* data, std::int64_t size, const char* implementation) try {
    return nolk::loadModel(data, static_cast<std::size_t>(size), 1, implementation).release();
} catch (const std::exception&) {
    return nullptr;
}

// Seconds that so many runs take; below 0 if one fails.
NOLK_API double secondsOf(nolk::Runner* runner, float* pixels, float* scores, int runs) {
    nolk::Tensor in{{1, 1, 28, 28, 3}, pixels}, out{{1, 10, 1, 1, 1}, scores};
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < runs; ++i)
        if (!runner->run(&in, 1, &out, 1)) return -1;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
}
