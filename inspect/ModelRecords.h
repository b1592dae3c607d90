// The operations that the records of a model file describe, read without building anything.
//   const ModelRecords records(file, 1);  records.operations()[0].name
#pragma once

#include <nolk_model.h>

#include <string>
#include <vector>

#include "inspect/LoggedOperation.h"
#include "inspect/ModelFile.h"

// Throws nolk::ModelError for a batch below 1.
void requirePositive(int batch);

class ModelRecords {
public:
    // Throws nolk::ModelError for records that cannot be read, or an output that no record makes.
    ModelRecords(const ModelFile& file, int batch);

    const std::vector<nolk::ModelOperation>& operations() const { return operations_; }
    const std::vector<int>& outputs() const { return outputs_; }  // indices in operations
    const nolk::ModelCost& cost() const { return cost_; }
    const nolk::ModelCost& buildingCost() const { return buildingCost_; }

    // The first operation whose result is undefined, or that ends the process, and why; empty when there is none.
    const std::string& meaningless() const { return meaningless_; }

private:
    std::string brokenView(const std::vector<LoggedOperation>& logged) const;

    std::vector<nolk::ModelOperation> operations_;
    std::vector<int> outputs_;
    nolk::ModelCost cost_, buildingCost_;
    std::string meaningless_;
};
