#include <exception>
#include <stdexcept>

#include "builder/ArenaLimit.h"
#include "builder/MemoryLimit.h"
#include "inspect/ModelRecords.h"
#include "inspect/RecordWalk.h"
#include "inspect/entryPoints.h"
#include "inspect/limits.h"
#include "memory/optionalInterface.h"

namespace {

nolk::Owned<nolk::RunnerBuilder> newBuilder(const char* implementation) {
    nolk::Owned<nolk::RunnerBuilder> builder(nolk_new_runner_builder(implementation));
    if (!builder)
        throw nolk::ModelError(std::string("no builder for ") + (implementation ? implementation : "NolkRaw"));
    return builder;
}

// The cost leaves out the gaps in the arena. The rounding of each tensor to a cache line is not held against it.
void limitMemory(nolk::RunnerBuilder& builder, const ModelRecords& records, const nolk::ModelLimits& limits) {
    if (limits.memoryBytes == nolk::ModelLimits::kNone) return;
    if (auto* const memory = optionalInterface<MemoryLimit>(builder)) return memory->limitMemory(limits.memoryBytes);
    auto* const arena = optionalInterface<ArenaLimit>(builder);
    if (!arena) return;
    const nolk::ModelCost& cost = records.cost();
    const auto tensors = static_cast<std::int64_t>(records.operations().size());
    arena->limitArena((limits.memoryBytes - cost.weightBytes - cost.scratchBytes) / 4 + 16 * tensors);
}

}  // namespace

nolk::Runner* loadFile(const void* data, std::size_t size, int batch, const char* implementation,
                       const nolk::ModelLimits& limits) {
    requirePositive(batch);
    ModelFile file(data, size);
    const ModelRecords records(file, batch);
    if (!records.meaningless().empty()) throw nolk::ModelError(records.meaningless());
    if (const std::string why = refusal(records.cost(), limits); !why.empty())
        throw nolk::LimitExceeded(why, records.cost());

    const nolk::Owned<nolk::RunnerBuilder> builder = newBuilder(implementation);
    limitMemory(*builder, records, limits);
    RecordWalk walk(file, batch, *builder);
    while (walk.next()) file.releaseBefore(walk.record().end);
    walk.finish();
    auto& outputs = walk.model().outputs;
    try {
        nolk::Runner* const runner = builder->build(outputs.data(), static_cast<int>(outputs.size()));
        if (!runner) throw nolk::ModelError("the implementation built no runner");
        return runner;
    } catch (const std::invalid_argument& e) {
        throw nolk::ModelError(e.what());
    } catch (const std::length_error& e) {
        throw nolk::LimitExceeded(e.what(), records.cost());
    }
}
