// Operators that keep the elements and change the shape, that tell shapes, and that make constants.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "convert/evaluate/Operator.h"

namespace convert {

namespace {

using onnx::TensorProto;

Arrays sameElements(const Call& call, const Values& results) { return {call.array(0).withDims(results[0].dims)}; }

Values reshaped(const Call& call, Dims dims) {
    if (elementCount(dims) != elementCount(call.dims(0)))
        throw OnnxError("makes " + describeDims(dims) + " of " + describeDims(call.dims(0)) +
                        ", which has another number of elements");
    return {valueOf(call.in(0).type, std::move(dims))};
}

// 0 keeps the input's extent, unless allowzero is set; one -1 takes what is left.
Values reshapeShapes(const Call& call) {
    Dims dims = call.ints(1, "shape");
    const Dims& own = call.dims(0);
    const bool keepsZero = call.intAttribute("allowzero", 0) != 0;
    std::int64_t known = 1;
    std::ptrdiff_t open = -1;
    for (std::size_t i = 0; i < dims.size(); ++i) {
        if (dims[i] == 0 && !keepsZero) {
            need(i < own.size(), "shape " + describeDims(call.ints(1, "shape")) + " keeps an extent that is not there");
            dims[i] = own[i];
        }
        need(dims[i] >= -1 && (dims[i] != -1 || open < 0), "shape " + describeDims(dims) + " is not possible");
        if (dims[i] == -1)
            open = static_cast<std::ptrdiff_t>(i);
        else
            known = elementCount({known, dims[i]});
    }
    if (open >= 0) {
        const std::int64_t count = elementCount(own);
        need(known != 0 && count % known == 0, "shape " + describeDims(dims) + " does not divide " + describeDims(own));
        dims[static_cast<std::size_t>(open)] = count / known;
    }
    return reshaped(call, std::move(dims));
}

Values flattenShapes(const Call& call) {
    const int rank = call.rank(0);
    const std::int64_t said = call.intAttribute("axis", 1);
    const int axis = said == rank ? rank : wrapAxis(said, rank);
    const Dims& dims = call.dims(0);
    return {valueOf(call.in(0).type, {elementCount(Dims(dims.begin(), dims.begin() + axis)),
                                      elementCount(Dims(dims.begin() + axis, dims.end()))})};
}

std::vector<bool> markedAxes(const std::vector<std::int64_t>& axes, int rank) {
    std::vector<bool> marked(static_cast<std::size_t>(rank), false);
    for (const std::int64_t axis : axes) {
        const auto place = static_cast<std::size_t>(wrapAxis(axis, rank));
        need(!marked[place], "names axis " + std::to_string(axis) + " twice", kAgainstOnnx);
        marked[place] = true;
    }
    return marked;
}

Values squeezeShapes(const Call& call) {
    const Dims& own = call.dims(0);
    const auto axes = call.intsOf("axes", 1);
    std::vector<bool> dropped(own.size());
    if (axes) dropped = markedAxes(*axes, call.rank(0));
    Dims dims;
    for (std::size_t i = 0; i < own.size(); ++i) {
        need(!axes || !dropped[i] || own[i] == 1, "squeezes " + describeDims(own) + " along axis " + std::to_string(i));
        if (axes ? !dropped[i] : own[i] != 1) dims.push_back(own[i]);
    }
    return {valueOf(call.in(0).type, std::move(dims))};
}

Values unsqueezeShapes(const Call& call) {
    const auto axes = call.intsOf("axes", 1);
    need(axes.has_value() && axes->size() <= 16, "axes are missing", kAgainstOnnx);
    const std::vector<bool> added = markedAxes(*axes, call.rank(0) + static_cast<int>(axes->size()));
    Dims dims;
    auto next = call.dims(0).begin();
    for (const bool isNew : added) dims.push_back(isNew ? 1 : *next++);
    return {valueOf(call.in(0).type, std::move(dims))};
}

// Dropout passes its input on, also in training mode where the ratio is 0; the mask is true everywhere.
Values dropoutShapes(const Call& call) {
    Values results{valueOf(call.in(0).type, call.dims(0))};
    if (call.outputCount() > 1)
        results.push_back(valueOf(call.opset >= 10 ? int{TensorProto::BOOL} : call.in(0).type, call.dims(0)));
    return results;
}

Arrays computeDropout(const Call& call, const Values& results) {
    if (call.opset >= 12 && call.has(2) && call.scalar(2, "training_mode") != 0)
        need(call.has(1) && call.scalar(1, "ratio") == 0, "training_mode is not supported");
    Arrays arrays{call.array(0)};
    if (results.size() < 2) return arrays;
    const auto count = static_cast<std::size_t>(call.array(0).count());
    if (results[1].type == TensorProto::BOOL)
        arrays.emplace_back(results[1].type, results[1].dims, std::vector<std::int64_t>(count, 1));
    else
        arrays.emplace_back(results[1].type, results[1].dims, std::vector<float>(count, 1));
    return arrays;
}

// What tells shapes.

Dims shapeFrom(const Call& call) {
    const std::int64_t rank = call.rank(0);
    const auto place = [&](const char* name, std::int64_t otherwise) {
        const std::int64_t at = call.intAttribute(name, otherwise);
        return std::clamp<std::int64_t>(at < 0 ? at + rank : at, 0, rank);
    };
    const std::int64_t start = place("start", 0), end = std::max(place("end", rank), start);
    return Dims(call.dims(0).begin() + start, call.dims(0).begin() + end);
}

Values shapeShapes(const Call& call) {
    return {valueOf(TensorProto::INT64, {static_cast<std::int64_t>(shapeFrom(call).size())})};
}

Arrays computeShape(const Call& call, const Values&) { return {intArray(shapeFrom(call))}; }

Values sizeShapes(const Call&) { return {valueOf(TensorProto::INT64, {})}; }

Arrays computeSize(const Call& call, const Values&) {
    return {{TensorProto::INT64, {}, std::vector<std::int64_t>{elementCount(call.dims(0))}}};
}

// Constants.

Array constantOf(const Call& call) {
    if (const auto* value = call.find("value")) return arrayOf(value->t(), {});
    if (const auto* value = call.find("value_float")) return floatArray({}, {value->f()});
    if (const auto* value = call.find("value_int"))
        return {TensorProto::INT64, {}, std::vector<std::int64_t>{value->i()}};
    if (const auto* value = call.find("value_floats"))
        return floatArray({value->floats_size()}, {value->floats().begin(), value->floats().end()});
    if (const auto* value = call.find("value_ints")) return intArray({value->ints().begin(), value->ints().end()});
    throw OnnxError("has no value that is supported (sparse tensors and strings are not)",
                    "store a dense tensor of numbers in the file");
}

Values constantShapes(const Call& call) {
    const Array value = constantOf(call);
    return {valueOf(value.type(), value.dims())};
}

Arrays computeConstant(const Call& call, const Values&) { return {constantOf(call)}; }

Array fillValue(const Call& call) {
    const auto* value = call.find("value");
    Array array = value != nullptr ? arrayOf(value->t(), {}) : floatArray({1}, {0});
    need(array.count() == 1, "value has " + std::to_string(array.count()) + " elements instead of one", kAgainstOnnx);
    return array;
}

Values constantOfShapeShapes(const Call& call) { return {valueOf(fillValue(call).type(), call.ints(0, "shape"))}; }

Arrays computeConstantOfShape(const Call& call, const Values& results) {
    const Array value = fillValue(call);
    const auto count = static_cast<std::size_t>(elementCount(results[0].dims));
    if (value.isFloat()) return {{value.type(), results[0].dims, std::vector<float>(count, value.floats()[0])}};
    return {{value.type(), results[0].dims, std::vector<std::int64_t>(count, value.ints()[0])}};
}

Values rangeShapes(const Call& call) {
    const double start = call.scalar(0, "start"), limit = call.scalar(1, "limit"), delta = call.scalar(2, "delta");
    need(delta != 0 && std::isfinite(start) && std::isfinite(limit) && std::isfinite(delta), "range without an end",
         kAgainstOnnx);
    const double count = std::max(0.0, std::ceil((limit - start) / delta));
    need(count <= static_cast<double>(kLargestResult), "range of too many elements", "make the range smaller");
    return {valueOf(call.in(0).type, {static_cast<std::int64_t>(count)})};
}

Arrays computeRange(const Call& call, const Values& results) {
    const std::int64_t count = results[0].dims[0];
    if (isFloatType(results[0].type)) {
        const double start = call.scalar(0, "start"), delta = call.scalar(2, "delta");
        std::vector<float> values;
        for (std::int64_t i = 0; i < count; ++i)
            values.push_back(static_cast<float>(start + static_cast<double>(i) * delta));
        return {{results[0].type, results[0].dims, std::move(values)}};
    }
    std::vector<std::int64_t> values;
    for (std::int64_t i = 0; i < count; ++i) values.push_back(call.ints(0, "start")[0] + i * call.ints(2, "delta")[0]);
    return {{results[0].type, results[0].dims, std::move(values)}};
}

Values eyeShapes(const Call& call) {
    need(call.rank(0) == 2, "expects a matrix");
    return {valueOf(static_cast<int>(call.intAttribute("dtype", call.in(0).type)), call.dims(0))};
}

Arrays computeEye(const Call& call, const Values& results) {
    const Dims& dims = results[0].dims;
    const std::int64_t k = call.intAttribute("k", 0);
    std::vector<float> values;
    for (std::int64_t row = 0; row < dims[0]; ++row)
        for (std::int64_t column = 0; column < dims[1]; ++column) values.push_back(column - row == k ? 1 : 0);
    if (isFloatType(results[0].type)) return {{results[0].type, dims, std::move(values)}};
    return {{results[0].type, dims, std::vector<std::int64_t>(values.begin(), values.end())}};
}

// [..., depth] with on_value at the indices.
Values oneHotShapes(const Call& call) {
    const auto depth = static_cast<std::int64_t>(call.scalar(1, "depth"));
    need(call.dims(2) == Dims{2}, "values has the shape " + describeDims(call.dims(2)));
    need(depth >= 0, "depth is negative");
    Dims dims = call.dims(0);
    dims.insert(dims.begin() + wrapAxis(call.intAttribute("axis", -1), call.rank(0) + 1), depth);
    return {valueOf(call.in(2).type, std::move(dims))};
}

Arrays computeOneHot(const Call& call, const Values& results) {
    const Dims& dims = results[0].dims;
    const auto axis = static_cast<std::size_t>(wrapAxis(call.intAttribute("axis", -1), call.rank(0) + 1));
    const std::int64_t depth = dims[axis], inner = stridesOf(dims)[axis];
    const auto choose = [&](std::int64_t i, const auto& values) {
        const auto place = static_cast<std::size_t>(i / (inner * depth) * inner + i % inner);
        const Array& indices = call.array(0);
        std::int64_t index =
            indices.isFloat() ? static_cast<std::int64_t>(indices.floats()[place]) : indices.ints()[place];
        if (index < 0) index += depth;
        return values[index == i / inner % depth ? 1 : 0];
    };
    const std::int64_t count = elementCount(dims);
    if (call.array(2).isFloat()) {
        std::vector<float> values;
        for (std::int64_t i = 0; i < count; ++i) values.push_back(choose(i, call.floats(2)));
        return {{results[0].type, dims, std::move(values)}};
    }
    std::vector<std::int64_t> values;
    for (std::int64_t i = 0; i < count; ++i) values.push_back(choose(i, call.array(2).ints()));
    return {{results[0].type, dims, std::move(values)}};
}

}  // namespace

const std::vector<Operator>& shapeOperators() {
    static const std::vector<Operator> rows = {
        {"Constant", constantShapes, computeConstant},
        {"ConstantOfShape", constantOfShapeShapes, computeConstantOfShape},
        {"Dropout", dropoutShapes, computeDropout},
        {"EyeLike", eyeShapes, computeEye},
        {"Flatten", flattenShapes, sameElements},
        {"Identity", asFirstInput, sameElements},
        {"OneHot", oneHotShapes, computeOneHot},
        {"Range", rangeShapes, computeRange},
        {"Reshape", reshapeShapes, sameElements},
        {"Shape", shapeShapes, computeShape},
        {"Size", sizeShapes, computeSize},
        {"Squeeze", squeezeShapes, sameElements},
        {"Unsqueeze", unsqueezeShapes, sameElements},
    };
    return rows;
}

}  // namespace convert
