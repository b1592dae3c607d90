#include "nolk/model/RecordWalk.h"

#include <exception>
#include <iterator>
#include <new>

#include "model/ModelReaderImpl.h"
#include "writer/OpCode.h"

namespace {

// By op code.
constexpr const char* kOperations[] = {
    "input",
    "constTensor",
    "convolve",
    "pad",
    "transpose",
    "slice",
    "fullConnect",
    "batchNormalize",
    "maxPool",
    "avgPool",
    "relu",
    "softmax",
    "concat",
    "add",
    "sub",
    "sigmoid",
    "reshape",
    "multiply",
    "exp",
    "divide",
    "reduce",
    "l2normalize",
    "output",
    "clip",
    "lstm",
    "hardSigmoid",
    "max",
    "instanceNormalization",
    "resize",
    "abs",
    "leakyRelu",
    "tanh",
    "deConvolve",
    "resize",
    "instanceNormalization",
    "prelu",
    "matMul",
};

bool isKnown(int opCode) { return opCode >= 0 && opCode < static_cast<int>(std::size(kOperations)); }

int inputCount(OpCode opCode) {
    switch (opCode) {
        case OpCode::input:
        case OpCode::constTensor:
            return 0;
        case OpCode::add:
        case OpCode::sub:
        case OpCode::multiply:
        case OpCode::divide:
        case OpCode::max:
        case OpCode::matMul:
            return 2;
        default:
            return 1;
    }
}

}  // namespace

RecordWalk::RecordWalk(const ModelFile& file, int batch, nolk::RunnerBuilder& builder)
    : file_(file), in_(file.records()), fields_(in_, file.version(), batch, builder, model_) {}

bool RecordWalk::next() {
    if (!file_.hasRecords() || record_.number >= file_.recordCount() || !record_.failure.empty()) return false;
    const int number = record_.number + 1;
    record_ = {};
    record_.number = number;
    record_.begin = file_.offsetOf(in_);
    BinReader ahead = in_;
    record_.opCode = ahead.readShort();
    record_.operation = isKnown(record_.opCode) ? kOperations[record_.opCode] : "?";
    readIds(ahead);
    const std::int64_t floatBytes = fields_.floatBytes();
    readFields();
    record_.end = file_.offsetOf(in_);
    record_.floatBytes = fields_.floatBytes() - floatBytes;
    return true;
}

// The ids are the first fields, but for an input's, which stands behind its shape.
void RecordWalk::readIds(BinReader fields) {
    if (!isKnown(record_.opCode)) return;
    const auto opCode = static_cast<OpCode>(record_.opCode);
    if (opCode == OpCode::input) fields.step(file_.version() == 1 ? 3 * 2 : 3 * 4);
    const int count = opCode == OpCode::concat ? fields.readByte() : inputCount(opCode);
    for (int i = 0; i < count; ++i) record_.inputs.push_back(fields.readShort());
    record_.hasOutput = opCode != OpCode::output;
    if (record_.hasOutput) record_.output = fields.readShort();
}

void RecordWalk::readFields() {
    try {
        const bool read = ModelReaderImpl::readOp(fields_);
        record_.remark = quiet_.take();
        if (read) return;
        record_.failure = isKnown(record_.opCode) ? "the file ends within it"
                                                  : "unknown op code " + std::to_string(record_.opCode) +
                                                        ", so where the next record begins cannot be told";
    } catch (const std::bad_array_new_length&) {
        record_.failure = "a count of floats is negative or above 2^31 - 1";
    } catch (const std::bad_alloc&) {
        record_.failure = "not enough memory for its floats";
    } catch (const std::exception& e) {
        record_.failure = e.what();
    }
}
