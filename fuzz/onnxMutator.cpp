// Changes ONNX messages field by field, by protobuf's reflection, so that most of them stay readable.
#include <onnx/onnx_pb.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/Choices.h"
#include "fuzz/target.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using Random = std::minstd_rand;

std::size_t below(Random& random, std::size_t limit) { return (random() >> 4) % limit; }

void collect(Message& message, std::vector<Message*>& all) {
    all.push_back(&message);
    std::vector<const FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    for (const FieldDescriptor* field : fields) {
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) continue;
        if (!field->is_repeated()) {
            collect(*message.GetReflection()->MutableMessage(&message, field), all);
            continue;
        }
        for (int i = 0; i < message.GetReflection()->FieldSize(message, field); ++i)
            collect(*message.GetReflection()->MutableRepeatedMessage(&message, field, i), all);
    }
}

std::int64_t integer(Random& random, std::int64_t old) {
    switch (below(random, 6)) {
        case 0:
            return old + 1;
        case 1:
            return old - 1;
        case 2:
            return -old;
        case 3:
            return Choices::kEdges[below(random, std::size(Choices::kEdges))];
        case 4:
            return (std::int64_t{1} << below(random, 64)) - static_cast<std::int64_t>(below(random, 2));
        default:
            return static_cast<std::int64_t>(below(random, 12));
    }
}

// Another text of the same kind from elsewhere in the model, mostly: a name or an operator that exists.
std::string text(Random& random, const FieldDescriptor* field, const std::vector<Message*>& all,
                 const std::string& old) {
    std::vector<std::string> others;
    for (const Message* message : all) {
        const auto* const reflection = message->GetReflection();
        for (int i = 0; i < message->GetDescriptor()->field_count(); ++i) {
            const FieldDescriptor* const other = message->GetDescriptor()->field(i);
            if (other->type() != field->type() || other->cpp_type() != FieldDescriptor::CPPTYPE_STRING) continue;
            if (other->is_repeated()) {
                for (int k = 0; k < reflection->FieldSize(*message, other); ++k)
                    others.push_back(reflection->GetRepeatedString(*message, other, k));
            } else if (reflection->HasField(*message, other)) {
                others.push_back(reflection->GetString(*message, other));
            }
        }
    }
    if (!others.empty() && below(random, 4) != 0) return others[below(random, others.size())];
    std::string changed = old + std::string(4, '\0');
    changed.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(changed.data()), old.size(), changed.size()));
    return changed;
}

constexpr const char* kOperators[] = {"Abs",
                                      "Add",
                                      "AveragePool",
                                      "BatchNormalization",
                                      "Cast",
                                      "Clip",
                                      "Concat",
                                      "Constant",
                                      "ConstantOfShape",
                                      "Conv",
                                      "ConvTranspose",
                                      "DepthToSpace",
                                      "Div",
                                      "Dropout",
                                      "Elu",
                                      "Erf",
                                      "Exp",
                                      "Expand",
                                      "Flatten",
                                      "GRU",
                                      "Gather",
                                      "Gelu",
                                      "Gemm",
                                      "GlobalAveragePool",
                                      "GlobalMaxPool",
                                      "HardSigmoid",
                                      "HardSwish",
                                      "Identity",
                                      "InstanceNormalization",
                                      "LRN",
                                      "LSTM",
                                      "LayerNormalization",
                                      "LeakyRelu",
                                      "LogSoftmax",
                                      "LpNormalization",
                                      "MatMul",
                                      "Max",
                                      "MaxPool",
                                      "Min",
                                      "Mul",
                                      "Neg",
                                      "PRelu",
                                      "Pad",
                                      "Pow",
                                      "Range",
                                      "Reciprocal",
                                      "ReduceL2",
                                      "ReduceMax",
                                      "ReduceMean",
                                      "ReduceMin",
                                      "ReduceSum",
                                      "Relu",
                                      "Reshape",
                                      "Resize",
                                      "Shape",
                                      "Sigmoid",
                                      "Slice",
                                      "Softmax",
                                      "Softplus",
                                      "SpaceToDepth",
                                      "Split",
                                      "Sqrt",
                                      "Squeeze",
                                      "Sub",
                                      "Sum",
                                      "Tanh",
                                      "Tile",
                                      "Transpose",
                                      "Unsqueeze",
                                      "Upsample",
                                      "Where"};

void changeSingle(Random& random, Message& message, const FieldDescriptor* field, const std::vector<Message*>& all) {
    const auto* const reflection = message.GetReflection();
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            reflection->SetInt32(&message, field,
                                 static_cast<std::int32_t>(integer(random, reflection->GetInt32(message, field))));
            break;
        case FieldDescriptor::CPPTYPE_INT64:
            reflection->SetInt64(&message, field, integer(random, reflection->GetInt64(message, field)));
            break;
        case FieldDescriptor::CPPTYPE_FLOAT: {
            const std::uint8_t bytes[] = {static_cast<std::uint8_t>(below(random, 256)),
                                          static_cast<std::uint8_t>(below(random, 256))};
            reflection->SetFloat(&message, field, Choices(bytes, sizeof bytes).real());
            break;
        }
        case FieldDescriptor::CPPTYPE_ENUM:
            reflection->SetEnumValue(&message, field, static_cast<int>(below(random, 24)));
            break;
        case FieldDescriptor::CPPTYPE_STRING:
            if (field->name() == "op_type")
                reflection->SetString(&message, field, kOperators[below(random, std::size(kOperators))]);
            else
                reflection->SetString(&message, field, text(random, field, all, reflection->GetString(message, field)));
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE:
            reflection->MutableMessage(&message, field);
            break;
        default:
            break;
    }
}

void changeRepeated(Random& random, Message& message, const FieldDescriptor* field, const std::vector<Message*>& all) {
    const auto* const reflection = message.GetReflection();
    const int count = reflection->FieldSize(message, field);
    const int at = count > 0 ? static_cast<int>(below(random, static_cast<std::size_t>(count))) : 0;
    const std::size_t way = below(random, 6);
    if (count > 0 && way == 0) return reflection->RemoveLast(&message, field);
    if (count > 1 && way == 1)
        return reflection->SwapElements(&message, field, at, static_cast<int>(below(random, count)));
    const bool adds = count == 0 || way == 2;
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT64: {
            const std::int64_t old = count > 0 ? reflection->GetRepeatedInt64(message, field, at) : 1;
            if (adds) return reflection->AddInt64(&message, field, integer(random, old));
            return reflection->SetRepeatedInt64(&message, field, at, integer(random, old));
        }
        case FieldDescriptor::CPPTYPE_FLOAT:
            if (adds) return reflection->AddFloat(&message, field, 0.5f);
            return reflection->SetRepeatedFloat(&message, field, at, static_cast<float>(below(random, 9)) - 4.0f);
        case FieldDescriptor::CPPTYPE_STRING: {
            const std::string old = count > 0 ? reflection->GetRepeatedString(message, field, at) : "";
            if (adds) return reflection->AddString(&message, field, text(random, field, all, old));
            return reflection->SetRepeatedString(&message, field, at, text(random, field, all, old));
        }
        case FieldDescriptor::CPPTYPE_MESSAGE: {
            if (!adds) return;
            // A copy of an element, so that what is added makes sense.
            Message* const added = reflection->AddMessage(&message, field);
            if (count > 0) added->CopyFrom(reflection->GetRepeatedMessage(message, field, at));
            return;
        }
        default:
            return;
    }
}

void change(Random& random, onnx::ModelProto& model) {
    std::vector<Message*> all;
    collect(model, all);
    Message& message = *all[below(random, all.size())];
    const auto* const descriptor = message.GetDescriptor();
    if (descriptor->field_count() == 0) return;
    std::vector<const FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    const FieldDescriptor* field =
        descriptor->field(static_cast<int>(below(random, static_cast<std::size_t>(descriptor->field_count()))));
    if (!fields.empty() && below(random, 4) != 0) field = fields[below(random, fields.size())];  // one that is set
    if (field->is_repeated())
        changeRepeated(random, message, field, all);
    else if (below(random, 12) == 0)
        message.GetReflection()->ClearField(&message, field);
    else
        changeSingle(random, message, field, all);
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
    Random random(seed);
    random.discard(3);
    onnx::ModelProto model;
    if (below(random, 32) == 0 || !model.ParseFromArray(data, static_cast<int>(size)))
        return LLVMFuzzerMutate(data, size, maxSize);
    do change(random, model);
    while (below(random, 2) == 0);
    const std::string bytes = model.SerializeAsString();
    if (bytes.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    std::copy(bytes.begin(), bytes.end(), data);
    return bytes.size();
}
