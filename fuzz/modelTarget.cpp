// Bytes of a model file, through the functions that the library exports: load, run twice, release.
#include <nolk.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "fuzz/Outline.h"
#include "fuzz/runTwice.h"
#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<unsigned char> file(data, data + size);
    const int batch = size == 0 ? 1 : 1 + file.back() % 3;
    try {
        const Outline outline = outlineOf(file.data(), file.size(), batch);
        if (!outline.isHarmless) return 0;
        nolk::Runner* const runner = nolk_new_runner("NolkRaw", file.data(), static_cast<int>(size), batch);
        expect(std::equal(file.begin(), file.end(), data), "loading restores the bytes");
        if (!runner) return 0;
        expect(runTwice(*runner, outline.inputs, outline.outputs), "a network that loads runs");
        runner->destroy();
    } catch (const std::bad_alloc&) {
        // An impossible count in the file, as nolk.h says.
    }
    return 0;
}
