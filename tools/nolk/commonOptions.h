// What several commands take. The variables that options are read into must live as long as the command.
#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

// Wrong usage that only a command can tell, once it knows the model: one line, exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// MODEL
void addModel(CLI::App& command, std::string& model);

// --batch N
void addBatch(CLI::App& command, int& batch, const std::string& description = "samples in a batch");

// What runs a network, and how.
class ImplementationOptions {
public:
    // --implementation NAME[:settings] and --threads N
    void addTo(CLI::App& command);

    // For nolk_new_runner_builder: the settings with the threads in the place of their num_threads.
    std::string text() const;

    std::string name() const;

    // The threads of one matrix product; 0 when an implementation that is not built in was not told.
    int threads() const;

private:
    std::string given_;
    int threads_ = 0;  // 0: what the settings say
};
