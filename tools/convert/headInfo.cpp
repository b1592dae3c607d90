#include "convert/headInfo.h"

namespace convert {

namespace {

// docs/model-format.md
constexpr int kInputName = 1, kOutputName = 2, kProducer = 3, kMetadata = 4;
constexpr std::size_t kMostBytes = 32767, kMostEntries = 256;

void add(std::vector<nolk::HeadInfo>& entries, int key, const std::string& text) {
    if (text.size() > kMostBytes) return;
    entries.push_back({key, {text.begin(), text.end()}});
}

}  // namespace

std::vector<nolk::HeadInfo> headInfoOf(const Model& model, const Graph& graph) {
    std::vector<nolk::HeadInfo> entries;
    for (const int tensor : graph.inputs)
        add(entries, kInputName, graph.tensors[static_cast<std::size_t>(tensor)].name);
    for (const int tensor : graph.outputs)
        add(entries, kOutputName, graph.tensors[static_cast<std::size_t>(tensor)].name);
    std::string producer = model.proto.producer_name();
    if (!model.proto.producer_version().empty()) producer += " " + model.proto.producer_version();
    if (!producer.empty()) add(entries, kProducer, producer);
    for (const auto& property : model.proto.metadata_props())
        if (entries.size() < kMostEntries) add(entries, kMetadata, property.key() + '\0' + property.value());
    return entries;
}

}  // namespace convert
