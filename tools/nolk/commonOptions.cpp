#include "nolk/commonOptions.h"

#include <CLI/CLI.hpp>

#include "nolk/numberChecks.h"

void addModel(CLI::App& command, std::string& model) {
    command.add_option("MODEL", model, "the model file")->type_name("FILE")->required();
}

void addBatch(CLI::App& command, int& batch, const std::string& description) {
    constexpr int kMost = 1 << 20;
    command.add_option("--batch", batch, description)
        ->type_name("N")
        ->check(wholeNumber(1, kMost))
        ->capture_default_str();
}
