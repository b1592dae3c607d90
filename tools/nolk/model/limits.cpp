#include "nolk/model/limits.h"

#include <algorithm>

#include "nolk/model/counts.h"
#include "nolk/words.h"

namespace {

constexpr std::int64_t kMaxFloats = std::int64_t{1} << 28;         // a gigabyte
constexpr std::int64_t kMaxPlanningSteps = std::int64_t{1} << 35;  // the planner walks over the arena float by float
constexpr std::int64_t kMaxRunningSteps = std::int64_t{1} << 37;

std::string bytesOf(std::int64_t floats) { return bytesText(productOf({floats, sizeof(float)})); }

// Floats of the tensors that exist at the same time, at most: each from its operation to its last use, outputs to the
// end.
std::int64_t liveFloats(const std::vector<NotedOperation>& operations, const std::vector<int>& outputs) {
    std::vector<std::size_t> lastUse(operations.size(), operations.size());  // what nobody uses stays
    for (std::size_t user = 0; user < operations.size(); ++user)
        for (const int place : operations[user].inputs)
            if (place >= 0) lastUse[static_cast<std::size_t>(place)] = user;
    for (const int place : outputs) lastUse[static_cast<std::size_t>(place)] = operations.size();
    std::vector<std::vector<std::size_t>> freed(operations.size() + 1);
    for (std::size_t i = 0; i < operations.size(); ++i) freed[lastUse[i]].push_back(i);
    std::int64_t live = 0, most = 0;
    for (std::size_t i = 0; i < operations.size() && most < kMaxFloats; ++i) {
        live = sumOf(live, elementsOf(operations[i].output));
        most = std::max(most, live);
        for (const std::size_t gone : freed[i]) live -= elementsOf(operations[gone].output);
    }
    return most;
}

}  // namespace

std::string tooLargeToBuild(const std::vector<NotedOperation>& operations, const std::vector<int>& outputs) {
    const std::int64_t live = liveFloats(operations, outputs);
    if (live >= kMaxFloats) return "its tensors take " + bytesOf(live) + " or more at a time";
    const auto count = static_cast<std::int64_t>(operations.size());
    if (productOf({live, count}) > kMaxPlanningSteps)
        return counted(count, "tensor") + " of up to " + bytesOf(live) + " at a time take long to plan";
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
