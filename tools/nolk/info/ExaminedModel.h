// A model file taken apart: what each record asks for, and what the built-in implementation makes of it.
//   ExaminedModel model("digits.cm", 1);  model.operations()[1].layer
// Made by two walks over the records: one takes notes, the other builds. Then the network is run once on zeros, unless
// it is too large for that.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "builder/RawRunnerBuilder.h"
#include "nolk/model/LoadedModel.h"
#include "inspect/ModelFile.h"
#include "inspect/LoggedOperation.h"
#include "inspect/RecordWalk.h"
#include "runner/BaseRunner.h"

struct ExaminedOperation {
    Record record;
    LoggedOperation noted;             // its inputs are places among the examined operations
    int layer = -1;                   // of the runner, which computes it; -1 for none
    bool isFused = false;             // whether that layer is another operation's, which has absorbed this one
    std::int64_t parametersKept = 0;  // floats that its layer holds; 0 when it is fused
};

// What was measured; negative where it was not.
struct MemoryUse {
    std::int64_t arenaBytes = -1;
    std::int64_t scratchBytes = -1;
    std::int64_t peakBytes = -1;  // of the whole process up to the end of the run
};

class ExaminedModel {
public:
    // Throws std::runtime_error, "path: why", for a file that cannot be read or built.
    ExaminedModel(const std::string& path, int batch);

    const ModelFile& file() const { return file_; }
    const std::vector<ExaminedOperation>& operations() const { return operations_; }  // inputs and constants too
    const std::vector<int>& outputs() const { return outputs_; }                      // places, in the network's order
    const MemoryUse& memory() const { return memory_; }

    // Null when it was too large to be built; remark() then says so.
    const BaseRunner* runner() const { return runner_.get(); }
    const std::vector<std::unique_ptr<LayerFactory>>& factories() const { return builder_->factories(); }
    const std::vector<std::unique_ptr<nolk::TensorX>>& inputTensors() const { return builder_->inputs(); }
    const std::vector<nolk::TensorX*>& outputTensors() const { return outputTensors_; }

    // The place of the operation that a layer was recorded for.
    int operationOfLayer(int layer) const { return operationOfLayer_[static_cast<std::size_t>(layer)]; }

    // Why something was not measured; empty when all was.
    const std::string& remark() const { return remark_; }

private:
    void takeNotes(int batch);
    void build(int batch);
    void findLayers(const std::vector<const LayerFactory*>& recorded, const std::vector<const nolk::TensorX*>& made);
    int layerOfConsumer(int place) const;
    void runOnce();
    [[noreturn]] void fail(const std::string& why) const;

    ModelFile file_;
    std::vector<ExaminedOperation> operations_;
    std::vector<int> outputs_;
    std::unique_ptr<RawRunnerBuilder, Destroy> builder_;
    std::unique_ptr<BaseRunner, Destroy> runner_;
    std::vector<nolk::TensorX*> outputTensors_;
    std::vector<int> operationOfLayer_;
    MemoryUse memory_;
    std::string remark_;
    std::string unfit_;
};
