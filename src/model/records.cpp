#include "model/records.h"

#include <type_traits>

#include "model/RecordReader.h"
#include "model/operations.h"

namespace {

template <typename T>
Argument readField(RecordReader& r) {
    if constexpr (std::is_enum_v<T>)
        return r.enum8<T>();
    else if constexpr (std::is_same_v<T, float>)
        return r.f32();
    else if constexpr (std::is_same_v<T, nolk::DimsHW>)
        return r.dimsHW();
    else if constexpr (std::is_same_v<T, nolk::LstmWeights>)
        return r.lstmWeights();
    else if constexpr (std::is_same_v<T, nolk::Padding>)
        return r.padding();
    else if constexpr (std::is_same_v<T, nolk::Perm>)
        return r.perm();
    else if constexpr (std::is_same_v<T, SharedWeights>)
        return SharedWeights{r.fullConnectWeights()};
    else if constexpr (std::is_same_v<T, nolk::SlicePos>)
        return r.slicePos();
    else if constexpr (std::is_same_v<T, nolk::Tensor>)
        return r.constant();
    else if constexpr (std::is_same_v<T, nolk::TensorShape>)
        return r.shape();
    else if constexpr (std::is_same_v<T, nolk::Vector>)
        return r.vector();
    else
        return r.convolutionWeights();
}

template <typename... Types>
Argument readKind(std::size_t kind, RecordReader& reader, const std::variant<Types...>*) {
    static constexpr Argument (*kReaders[])(RecordReader&) = {&readField<Types>...};
    return kReaders[kind](reader);
}

}  // namespace

// Ids come before the fields. Only the record of an input has its id after its shape.
Record readRecord(const Operation& operation, RecordReader& reader) {
    Record record{&operation, {}, 0, {}};
    const bool idIsLast = operation.code == kCodeOf<&nolk::RunnerBuilder::input>;
    const int inputCount = operation.inputCount == kListOfInputs ? reader.u8() : operation.inputCount;
    for (int i = 0; i < inputCount; ++i) record.inputs.push_back(reader.id());
    if (operation.call && !idIsLast) record.output = reader.id();
    for (std::size_t i = 0; i < operation.fieldCount; ++i)
        record.arguments.push_back(readKind(operation.fields[i].kind, reader, static_cast<const Argument*>(nullptr)));
    if (idIsLast) record.output = reader.id();
    return record;
}

void makeCall(const Record& record, RecordReader& reader) {
    Call call{*record.operation, {}, record.arguments};
    for (const std::int16_t id : record.inputs) call.inputs.push_back(reader.tensor(id));
    if (record.operation->call)
        reader.store(record.output, record.operation->call(reader.builder(), call));
    else
        reader.addOutput(call.inputs.front());
}
