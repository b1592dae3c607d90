#include "nolk/limits.h"

#include <algorithm>

#include "nolk/counts.h"
#include "nolk/words.h"

namespace {

constexpr std::int64_t kMaxFloats = std::int64_t{1} << 27;         // half a gigabyte
constexpr std::int64_t kMaxPlanningSteps = std::int64_t{1} << 35;  // the planner walks over the arena float by float
constexpr std::int64_t kMaxRunningSteps = std::int64_t{1} << 37;

std::string bytesOf(std::int64_t floats) { return bytesText(productOf({floats, sizeof(float)})); }

}  // namespace

std::string tooLargeToBuild(const std::vector<NotedOperation>& operations) {
    std::int64_t total = 0, largest = 0;
    for (const NotedOperation& operation : operations) {
        const std::int64_t floats = elementsOf(operation.output);
        total = sumOf(total, floats);
        largest = std::max(largest, floats);
    }
    const auto count = static_cast<std::int64_t>(operations.size());
    if (total > kMaxFloats) return "its tensors take " + bytesOf(total) + " in all";
    if (productOf({largest, count}) > kMaxPlanningSteps)
        return counted(count, "tensor") + " of up to " + bytesOf(largest) + " take long to plan";
    return {};
}

std::string unfitToRun(const std::vector<NotedOperation>& operations) {
    std::int64_t work = 0, scratch = 0;
    for (const NotedOperation& operation : operations) {
        work = sumOf(work, operation.work);
        scratch = std::max(scratch, operation.scratchFloats);
        for (const Doubt& doubt : operation.doubts)
            if (doubt.isError) return operation.name + ": " + doubt.text;
    }
    if (scratch > kMaxFloats) return "its scratch memory may take " + bytesOf(scratch);
    if (work > kMaxRunningSteps) return "it would take " + grouped(work) + " steps";
    return {};
}
