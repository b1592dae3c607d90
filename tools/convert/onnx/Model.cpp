#include "convert/onnx/Model.h"

#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "convert/onnx/text.h"

namespace convert {

namespace {

namespace fs = std::filesystem;
using onnx::TensorProto;

constexpr int kOldestIr = 3, kNewestIr = 10, kOldestOpset = 7, kNewestOpset = 21;

// Files that are often taken for ONNX models, by their first bytes.
struct OtherKind {
    std::string_view begin;
    const char* text;
};

constexpr OtherKind kOtherKinds[] = {
    {"PK\x03\x04", ": a zip archive, such as PyTorch writes; export the network with torch.onnx.export"},
    {"version https://git-lfs", ": a pointer of Git LFS; fetch the file itself with git lfs pull"},
    {"<!DOCTYPE", ": a web page; download the file itself"},
    {"CM", ": a model file of nolk's already"},
};

std::string notAModel(const fs::path& path) {
    char bytes[32] = {};
    std::ifstream(path, std::ios::binary).read(bytes, sizeof bytes);
    for (const OtherKind& kind : kOtherKinds)
        if (std::string_view(bytes, sizeof bytes).substr(0, kind.begin.size()) == kind.begin)
            return std::string("not an ONNX model") + kind.text;
    return "not an ONNX model, or cut short";
}

void parse(const fs::path& path, onnx::ModelProto& proto) {
    if (mayBlock(path)) throw OnnxError("is no regular file");
    std::error_code error;
    const std::uintmax_t size = fs::is_directory(path, error) ? 0 : fs::file_size(path, error);
    if (!error && size > INT_MAX) throw OnnxError("larger than 2 GiB: store its weights as external data");
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) throw OnnxError(std::string("cannot be opened: ") + std::strerror(errno));
    google::protobuf::LogSilencer noLines;  // what goes wrong is said here
    google::protobuf::io::FileInputStream stream(file);
    stream.SetCloseOnDelete(true);
    google::protobuf::io::CodedInputStream coded(&stream);
    coded.SetTotalBytesLimit(INT_MAX);
    const bool parsed = proto.ParseFromCodedStream(&coded) && coded.ConsumedEntireMessage();
    if (stream.GetErrno() != 0) throw OnnxError(std::string("cannot be read: ") + std::strerror(stream.GetErrno()));
    if (!parsed) throw OnnxError(notAModel(path));
}

int defaultOpset(const onnx::ModelProto& proto) {
    int opset = 0;
    for (const auto& import : proto.opset_import())
        if (import.domain().empty() || import.domain() == "ai.onnx")
            opset = static_cast<int>(std::min<std::int64_t>(std::max<std::int64_t>(import.version(), 0), INT_MAX));
    return opset;
}

void checkVersions(const onnx::ModelProto& proto) {
    const auto between = [](const char* what, std::int64_t version, int oldest, int newest) {
        if (version < oldest || version > newest)
            throw OnnxError(std::string(what) + " " + std::to_string(version) +
                            " is not supported: export with one from " + std::to_string(oldest) + " to " +
                            std::to_string(newest));
    };
    if (!proto.has_ir_version() || !proto.has_graph()) throw OnnxError("not an ONNX model");
    between("IR version", proto.ir_version(), kOldestIr, kNewestIr);
    between("opset", defaultOpset(proto), kOldestOpset, kNewestOpset);
    if (proto.graph().sparse_initializer_size() != 0) throw OnnxError("sparse weights are not supported");
}

// An empty name stands for an input or output of a node that is left out.
void checkNames(const onnx::GraphProto& graph) {
    for (const auto& input : graph.input())
        if (input.name().empty()) throw OnnxError("an input has no name");
    for (const auto& output : graph.output())
        if (output.name().empty()) throw OnnxError("an output has no name");
}

// How many tensors of each type become float32.
using TypeCounts = std::map<int, int>;

void take(Model& model, TensorProto& tensor, const std::string& name, TypeCounts& converted) {
    Array array = arrayOf(tensor, model.folder);
    if (array.isFloat() && array.type() != TensorProto::FLOAT) ++converted[array.type()];
    if (!model.initializers.emplace(name, std::move(array)).second)
        throw OnnxError("two tensors are named " + inQuotes(name));
    TensorProto nameOnly;
    nameOnly.set_name(tensor.name());
    tensor.Swap(&nameOnly);
}

// The tensor that a Constant of the graph stands for; null for one of other forms, which is evaluated like other nodes.
TensorProto* constantOf(onnx::NodeProto& node) {
    if (!node.domain().empty() || node.op_type() != "Constant" || node.input_size() != 0 || node.output_size() != 1 ||
        node.output(0).empty() || node.attribute_size() != 1 || node.attribute(0).name() != "value" ||
        !node.attribute(0).has_t())
        return nullptr;
    const int type = node.attribute(0).t().data_type();
    return isFloatType(type) || isIntType(type) ? node.mutable_attribute(0)->mutable_t() : nullptr;
}

// Some exporters store all weights in nodes.
void takeConstantNodes(Model& model, TypeCounts& converted) {
    auto& nodes = *model.proto.mutable_graph()->mutable_node();
    std::set<std::string> others;  // names that are taken already: whoever orders the nodes says so
    for (const auto& input : model.graph().input()) others.insert(input.name());
    for (const onnx::NodeProto& node : nodes)
        if (node.op_type() != "Constant") others.insert(node.output().begin(), node.output().end());
    int kept = 0;
    for (int i = 0; i < nodes.size(); ++i) {
        TensorProto* tensor = constantOf(*nodes.Mutable(i));
        const std::string& name = tensor != nullptr ? nodes[i].output(0) : nodes[i].name();
        if (tensor != nullptr && others.count(name) == 0 && model.initializers.count(name) == 0)
            take(model, *tensor, name, converted);
        else
            nodes.SwapElements(kept++, i);
    }
    nodes.DeleteSubrange(kept, nodes.size() - kept);
}

// External data of tensors that are attributes, as of a Constant in a branch: nodes do not know the model's folder.
void takeConstants(onnx::GraphProto& graph, const fs::path& folder, TypeCounts& converted) {
    for (auto& node : *graph.mutable_node())
        for (auto& attribute : *node.mutable_attribute()) {
            if (attribute.has_t()) takeExternalData(*attribute.mutable_t(), folder);
            for (TensorProto& tensor : *attribute.mutable_tensors()) takeExternalData(tensor, folder);
            const int type = attribute.has_t() ? attribute.t().data_type() : 0;
            if (isFloatType(type) && type != TensorProto::FLOAT) ++converted[type];
            if (attribute.has_g()) takeConstants(*attribute.mutable_g(), folder, converted);
            for (auto& inner : *attribute.mutable_graphs()) takeConstants(inner, folder, converted);
        }
}

// The default domain has a second name.
void useEmptyDomain(onnx::GraphProto& graph) {
    for (auto& node : *graph.mutable_node()) {
        if (node.domain() == "ai.onnx") node.clear_domain();
        for (auto& attribute : *node.mutable_attribute()) {
            if (attribute.has_g()) useEmptyDomain(*attribute.mutable_g());
            for (auto& inner : *attribute.mutable_graphs()) useEmptyDomain(inner);
        }
    }
}

void addExternalFile(const TensorProto& tensor, Model& model) {
    if (tensor.data_location() != TensorProto::EXTERNAL) return;
    for (const auto& entry : tensor.external_data()) {
        const fs::path path = model.folder / entry.value();
        if (entry.key() == "location" && (model.externalFiles.empty() || model.externalFiles.back() != path))
            model.externalFiles.push_back(path);
    }
}

void addExternalFiles(const onnx::GraphProto& graph, Model& model) {
    for (const TensorProto& tensor : graph.initializer()) addExternalFile(tensor, model);
    for (const auto& node : graph.node())
        for (const auto& attribute : node.attribute()) {
            if (attribute.has_t()) addExternalFile(attribute.t(), model);
            for (const TensorProto& tensor : attribute.tensors()) addExternalFile(tensor, model);
            if (attribute.has_g()) addExternalFiles(attribute.g(), model);
            for (const auto& inner : attribute.graphs()) addExternalFiles(inner, model);
        }
}

void takeTensors(Model& model) {
    addExternalFiles(model.graph(), model);
    TypeCounts converted;
    for (TensorProto& tensor : *model.proto.mutable_graph()->mutable_initializer())
        take(model, tensor, tensor.name(), converted);
    takeConstantNodes(model, converted);
    takeConstants(*model.proto.mutable_graph(), model.folder, converted);
    for (const auto& [type, count] : converted)
        model.remarks.push_back(std::to_string(count) + (count == 1 ? " tensor of " : " tensors of ") + typeName(type) +
                                (count == 1 ? " becomes float32" : " become float32"));
}

}  // namespace

bool mayBlock(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    const bool isOpened = path == "/dev/stdin" || path.parent_path() == "/dev/fd";
    return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status) && !isOpened;
}

Model readModel(const fs::path& path) {
    onnx::ModelProto proto;
    parse(path, proto);
    return modelOf(std::move(proto), path.parent_path());
}

Model modelOf(onnx::ModelProto proto, const fs::path& folder) {
    checkVersions(proto);
    checkNames(proto.graph());
    Model model;
    model.proto = std::move(proto);
    model.folder = folder;
    model.opset = defaultOpset(model.proto);
    useEmptyDomain(*model.proto.mutable_graph());
    takeTensors(model);
    orderedNodes(model);  // refuses names that are made twice or not at all, before anyone looks for a tensor by name
    return model;
}

namespace {

// The tensors that recurrent nodes take with the time first.
std::set<std::string> sequencesOf(const onnx::GraphProto& graph) {
    static const std::set<std::string> kRecurrent{"GRU", "LSTM", "RNN"};
    std::set<std::string> names;
    for (const auto& node : graph.node()) {
        const auto& attributes = node.attribute();
        const bool isBatchFirst = std::any_of(attributes.begin(), attributes.end(),
                                              [](const auto& a) { return a.name() == "layout" && a.i() != 0; });
        if (!isBatchFirst && node.input_size() > 0 && kRecurrent.count(node.op_type()) != 0)
            names.insert(node.input(0));
    }
    return names;
}

}  // namespace

std::vector<ModelInput> inputsOf(const Model& model) {
    const std::set<std::string> sequences = sequencesOf(model.graph());
    std::vector<ModelInput> inputs;
    for (const auto& value : model.graph().input()) {
        if (model.initializers.count(value.name()) != 0) continue;
        ModelInput input;
        input.name = value.name();
        input.type = value.type().tensor_type().elem_type();
        if (!value.type().has_tensor_type()) throw OnnxError("input " + inQuotes(input.name) + " is not a tensor");
        input.hasShape = value.type().tensor_type().has_shape();
        input.isSequence = sequences.count(input.name) != 0;
        for (const auto& extent : value.type().tensor_type().shape().dim()) {
            const bool isFixed = extent.has_dim_value() && extent.dim_value() > 0;
            input.dims.push_back(isFixed ? extent.dim_value() : -1);
            input.parameters.push_back(extent.dim_param());
        }
        inputs.push_back(std::move(input));
    }
    return inputs;
}

std::string describeNode(const onnx::NodeProto& node) {
    const std::string type = node.op_type().empty() ? "no operator" : inQuotes(node.op_type());
    const std::string name = !node.name().empty()      ? "node " + inQuotes(node.name())
                             : node.output_size() != 0 ? "node that makes " + inQuotes(node.output(0))
                                                       : std::string("node without results");
    return name + " (" + (type.front() == '\'' ? type.substr(1, type.size() - 2) : type) + ")";
}

}  // namespace convert
