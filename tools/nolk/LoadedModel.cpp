#include "nolk/LoadedModel.h"

#include <stdexcept>

#include "model/ModelReaderImpl.h"

LoadedModel::LoadedModel(const std::string& path, const char* cfg, int batch) : builder_(new RawRunnerBuilder(cfg)) {
    ModelReaderImpl reader;
    runner_.reset(static_cast<BaseRunner*>(reader.readFromFile(builder_.get(), batch, path.c_str())));
    if (runner_) return;
    char reason[256];
    nolk_pop_error_message(reason, sizeof reason);
    throw std::runtime_error(path + ": " + (*reason ? reason : "empty or damaged"));
}
