// Bytes of a model file, through the functions that the library exports: load, run twice, release.
#include <nolk.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "fuzz/HostRun.h"
#include "fuzz/Outline.h"
#include "fuzz/target.h"

namespace {

void loadAndRun(std::vector<unsigned char> file, int batch) {
    const Outline outline = outlineOf(file.data(), file.size(), batch);
    if (!outline.isHarmless) return;
    const std::vector<unsigned char> given = file;
    nolk::Runner* const runner = nolk_new_runner("NolkRaw", file.data(), static_cast<int>(file.size()), batch);
    expect(file == given, "loading restores the bytes");
    if (!runner) return;
    expect(runTwice(*runner, outline.inputs, outline.outputs), "a network that loads runs");
    runner->destroy();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int batch = size == 0 ? 1 : 1 + data[size - 1] % 3;
    try {
        loadAndRun({data, data + size}, batch);
    } catch (const std::bad_alloc&) {
        // An impossible count in the file, as nolk.h says.
    }
    dropMessages();
    return 0;
}
