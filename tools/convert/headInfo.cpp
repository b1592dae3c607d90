#include "convert/headInfo.h"

#include <algorithm>

namespace convert {

namespace {

// docs/model-format.md
constexpr int kInputName = 1, kOutputName = 2, kProducer = 3, kMetadata = 4;
constexpr std::size_t kMostBytes = 32767, kMostNotes = 256;

nolk::HeadInfo entry(int key, const std::string& text) { return {key, {text.begin(), text.end()}}; }

class HeadInfoMaker {
public:
    explicit HeadInfoMaker(std::vector<std::string>& remarks) : remarks_(remarks) {}

    // Names stand for inputs or outputs by their order: one that is missing would move the others.
    void addNames(const Graph& graph, const std::vector<int>& tensors, int key, const char* what) {
        const bool fit = std::all_of(tensors.begin(), tensors.end(),
                                     [&](int tensor) { return graph.nameOf(tensor).size() <= kMostBytes; });
        if (!fit)
            remarks_.push_back(std::string("the names of ") + what + " are left out: one has more than " +
                               std::to_string(kMostBytes) + " bytes");
        for (const int tensor : tensors)
            if (fit) entries_.push_back(entry(key, graph.nameOf(tensor)));
    }

    void addProducer(const onnx::ModelProto& proto) {
        std::string producer = proto.producer_name();
        if (!proto.producer_version().empty()) producer += " " + proto.producer_version();
        if (producer.size() > kMostBytes)
            remarks_.emplace_back("the producer's name is left out: it is too long");
        else if (!producer.empty())
            entries_.push_back(entry(kProducer, producer));
    }

    void addNotes(const onnx::ModelProto& proto) {
        std::size_t added = 0;
        for (const auto& property : proto.metadata_props()) {
            const std::string text = property.key() + '\0' + property.value();
            if (text.size() > kMostBytes || added == kMostNotes) continue;
            entries_.push_back(entry(kMetadata, text));
            ++added;
        }
        const std::size_t all = static_cast<std::size_t>(proto.metadata_props_size());
        if (added != all)
            remarks_.push_back(std::to_string(all - added) + " of " + std::to_string(all) +
                               " metadata_props are left out: the file takes " + std::to_string(kMostNotes) +
                               ", of up to " + std::to_string(kMostBytes) + " bytes");
    }

    std::vector<nolk::HeadInfo> take() { return std::move(entries_); }

private:
    std::vector<nolk::HeadInfo> entries_;
    std::vector<std::string>& remarks_;
};

}  // namespace

std::vector<nolk::HeadInfo> headInfoOf(const Model& model, const Graph& graph, std::vector<std::string>& remarks) {
    HeadInfoMaker maker(remarks);
    maker.addNames(graph, graph.inputs, kInputName, "inputs");
    maker.addNames(graph, graph.outputs, kOutputName, "outputs");
    maker.addProducer(model.proto);
    maker.addNotes(model.proto);
    return maker.take();
}

}  // namespace convert
