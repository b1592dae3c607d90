#include "nolk/model/LoadedModel.h"

#include <exception>
#include <stdexcept>

#include "model/ModelReaderImpl.h"
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

}  // namespace

LoadedModel::LoadedModel(const std::string& path, const char* cfg, int batch) : builder_(newBuilder(cfg)) {
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
