#include "nolk/model/LoadedModel.h"

#include <chrono>
#include <exception>
#include <stdexcept>

#include "model/ModelReaderImpl.h"
#include "inspect/OperationLog.h"
#include "inspect/RecordWalk.h"
#include "nolk/model/StandardErrorCapture.h"

namespace {

RawRunnerBuilder* newBuilder(const char* cfg) {
    try {
        return new RawRunnerBuilder(cfg);
    } catch (const std::logic_error&) {
        throw std::runtime_error(std::string(cfg) + ": a setting is not a number");
    }
}

// What the library says of a file may end with its path.
std::string withoutPath(const std::string& message, const std::string& path) {
    const std::string end = ": " + path;
    const bool named =
        message.size() > end.size() && message.compare(message.size() - end.size(), end.size(), end) == 0;
    return named ? message.substr(0, message.size() - end.size()) : message;
}

// The library runs what no operation is defined for too: it prints a line, and ends the process with status 0 or leaves
// the output as it was. What cannot be read is left to loading, which says why.
void refuseMeaningless(const std::string& path, int batch) {
    const ModelFile file(path);
    for (const Finding& finding : file.findings())
        if (finding.isError) return;
    OperationLog notes;
    RecordWalk walk(file, batch, notes);
    while (walk.next()) {
        walk.model().arrays.clear();  // notes keep none
        const Record& record = walk.record();
        if (!record.failure.empty()) return;
        if (!record.hasOutput) continue;
        for (const Diagnostic& doubt : notes.operations().back().diagnostics)
            if (doubt.isError) throw std::runtime_error(path + ": " + record.place() + ": " + doubt.text);
    }
}

}  // namespace

LoadedModel::LoadedModel(const std::string& path, const char* cfg, int batch) : builder_(newBuilder(cfg)) {
    refuseMeaningless(path, batch);
    const auto start = std::chrono::steady_clock::now();
    load(path, batch);
    loadSeconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void LoadedModel::load(const std::string& path, int batch) {
    StandardErrorCapture quiet;
    ModelReaderImpl reader;
    try {
        runner_.reset(static_cast<BaseRunner*>(reader.readFromFile(builder_.get(), batch, path.c_str())));
    } catch (const std::exception& e) {
        throw std::runtime_error(path + ": " + e.what());
    }
    if (runner_) return;
    const std::string reason = withoutPath(quiet.take(), path);
    throw std::runtime_error(path + ": " + (reason.empty() ? "empty or damaged" : reason));
}
