// A network that the built-in implementation has built from a model file; tells the layer and the memory of each
// operation.
//   BuiltNetwork network(file, 1);  network.describe(info);  network.runOnce(info);
#pragma once

#include <nolk_model.h>

#include <vector>

#include "builder/RawRunnerBuilder.h"
#include "inspect/ModelFile.h"
#include "runner/BaseRunner.h"

class BuiltNetwork {
public:
    // Throws nolk::ModelError when the network cannot be built.
    // Afterwards the records of the file cannot be read again.
    BuiltNetwork(ModelFile& file, int batch);

    // Adds layers, arena and the effects of fusion to an info that already has the operations of the file.
    void describe(nolk::ModelInfo& info) const;

    // Runs the network on zeros, and adds the memory that this took.
    void runOnce(nolk::ModelInfo& info);

private:
    void addLayers(nolk::ModelInfo& info) const;
    void addAbsorbing(nolk::ModelInfo& info) const;
    void addArena(nolk::ModelInfo& info) const;

    nolk::Owned<RawRunnerBuilder> builder_;
    nolk::Owned<BaseRunner> runner_;
    std::vector<const nolk::TensorX*> made_;  // before fusion, for each operation; null for none
    std::vector<nolk::TensorX*> outputs_;
};
