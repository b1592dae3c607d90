// Options that several commands have. The variables that options are read into must live as long as the command.
#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

// Wrong usage that a command can detect only when it knows the model. It gives one line and exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// MODEL
void addModel(CLI::App& command, std::string& model);

// --batch N
void addBatch(CLI::App& command, int& batch, const std::string& description = "samples in a batch");

// The implementation that runs a network, and its settings.
class ImplementationOptions {
public:
    // --implementation NAME[:settings] and --threads N
    void addTo(CLI::App& command);

    // The argument of nolk_new_runner_builder: name and settings, in which --threads replaces num_threads.
    std::string text() const;

    std::string name() const;

    // The threads that one run may use; 0 if unknown, because another implementation got no number of threads.
    int threads() const;

private:
    std::string given_;
    int threads_ = 0;  // 0: not given, so num_threads of the settings counts
};
