// Bytes of an ONNX file through the converter: read, convert, compare the result with the plain meaning of the graph.
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "convert/conversion.h"
#include "fuzz/target.h"

namespace {

// Checks cost most where the converter has least to do with it: long runs of large networks.
void check(const convert::Model& model, const convert::Conversion& made) {
    convert::CheckOptions options = convert::checkOptionsFor(model, {}, made);
    options.memoryBytes = 1 << 22;
    options.steps = 1'000'000;
    const convert::CheckResult result = convert::check(model, made.file, options);
    expect(result.passed == result.failure.empty(), "a check that fails says why");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    onnx::ModelProto proto;
    if (!proto.ParseFromArray(data, static_cast<int>(size))) return 0;
    try {
        convert::Model model = convert::modelOf(std::move(proto), {});
        convert::takeBranches(model, {});
        const convert::Conversion made = convert::convertModel(model, {});
        expect(made.file.bytes.empty() == !made.findings.empty(), "a file is made as a whole or not at all");
        if (made.findings.empty()) check(model, made);
    } catch (const convert::OnnxError& error) {
        expect(std::string(error.what()).find('\n') == std::string::npos, "a message is one line");
    } catch (const std::bad_alloc&) {
        // Extents that no memory can hold.
    }
    dropMessages();
    return 0;
}
