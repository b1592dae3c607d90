// Operators on elements of several tensors that broadcast to one shape, and casts.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "convert/evaluate/Operator.h"

namespace convert {

namespace {

using onnx::TensorProto;

std::int64_t quotient(std::int64_t a, std::int64_t b) {
    need(b != 0, "divides an integer by 0");
    return b == -1 ? -a : a / b;
}

// The remainder has the divisor's sign.
std::int64_t remainder(std::int64_t a, std::int64_t b) {
    need(b != 0, "divides an integer by 0");
    const std::int64_t rest = b == -1 ? 0 : a % b;
    return rest != 0 && (rest < 0) != (b < 0) ? rest + b : rest;
}

// The remainder has the dividend's sign, as fmod's.
std::int64_t remainderOfFmod(std::int64_t a, std::int64_t b) {
    need(b != 0, "divides an integer by 0");
    return b == -1 ? 0 : a % b;
}

std::int64_t power(std::int64_t a, std::int64_t b) {
    const double result = std::pow(static_cast<double>(a), static_cast<double>(b));
    need(std::abs(result) < 9e18, "an integer power is too large");
    return static_cast<std::int64_t>(result);
}

struct Binary {
    const char* name;
    double (*floats)(double a, double b);
    std::int64_t (*ints)(std::int64_t a, std::int64_t b);
    bool makesBool;
};

// NaN goes through Max and Min.
double larger(double a, double b) { return std::isnan(a) || a > b ? a : b; }
double smaller(double a, double b) { return std::isnan(a) || a < b ? a : b; }

template <typename T>
T sum(T a, T b) {
    return a + b;
}
template <typename T>
T difference(T a, T b) {
    return a - b;
}
template <typename T>
T product(T a, T b) {
    return a * b;
}
template <typename T>
T equal(T a, T b) {
    return static_cast<T>(a == b);
}
template <typename T>
T greater(T a, T b) {
    return static_cast<T>(a > b);
}
template <typename T>
T greaterOrEqual(T a, T b) {
    return static_cast<T>(a >= b);
}
template <typename T>
T less(T a, T b) {
    return static_cast<T>(a < b);
}
template <typename T>
T lessOrEqual(T a, T b) {
    return static_cast<T>(a <= b);
}

using Int = std::int64_t;

const Binary kBinary[] = {
    {"Add", sum<double>, sum<Int>, false},
    {"And", nullptr, [](Int a, Int b) { return Int{a != 0 && b != 0}; }, true},
    {"Div", [](double a, double b) { return a / b; }, quotient, false},
    {"Equal", equal<double>, equal<Int>, true},
    {"Greater", greater<double>, greater<Int>, true},
    {"GreaterOrEqual", greaterOrEqual<double>, greaterOrEqual<Int>, true},
    {"Less", less<double>, less<Int>, true},
    {"LessOrEqual", lessOrEqual<double>, lessOrEqual<Int>, true},
    {"Max", larger, [](Int a, Int b) { return std::max(a, b); }, false},
    {"Mean", sum<double>, nullptr, false},
    {"Min", smaller, [](Int a, Int b) { return std::min(a, b); }, false},
    {"Mod", [](double a, double b) { return std::fmod(a, b); }, remainder, false},
    {"Mul", product<double>, product<Int>, false},
    {"Or", nullptr, [](Int a, Int b) { return Int{a != 0 || b != 0}; }, true},
    {"PRelu", [](double x, double slope) { return x < 0 ? x * slope : x; }, nullptr, false},
    {"Pow", [](double a, double b) { return std::pow(a, b); }, power, false},
    {"Sub", difference<double>, difference<Int>, false},
    {"Sum", sum<double>, nullptr, false},
    {"Xor", nullptr, [](Int a, Int b) { return Int{(a != 0) != (b != 0)}; }, true},
};

const Binary& rowOf(const Call& call) {
    return *std::find_if(std::begin(kBinary), std::end(kBinary),
                         [&](const Binary& row) { return call.node.op_type() == row.name; });
}

// Max, Mean, Min and Sum take any number of tensors; the others two.
Values binaryShapes(const Call& call) {
    const Binary& row = rowOf(call);
    Dims dims = call.dims(0);
    for (std::size_t i = 1; i < call.inputCount(); ++i) dims = broadcastDims(dims, call.dims(i));
    const std::string& name = call.node.op_type();
    const bool isVariadic = name == "Max" || name == "Mean" || name == "Min" || name == "Sum";
    need(isVariadic || call.inputCount() == 2, "expects two inputs", kAgainstOnnx);
    if (name == "PRelu") need(dims == call.dims(0), "the slope does not broadcast to the input");
    return {valueOf(row.makesBool ? TensorProto::BOOL : call.in(0).type, std::move(dims))};
}

// Calls use(i, value) for the elements of one input in the order of the result, whose place is i.
template <typename Use>
void forEachValue(const Array& array, const Dims& dims, Use&& use) {
    const auto walk = [&](const auto& values) {
        std::size_t i = 0;
        forEachOffset(dims, broadcastSteps(array.dims(), dims), [&](std::int64_t offset) {
            use(i++, static_cast<double>(values[static_cast<std::size_t>(offset)]));
        });
    };
    if (array.isFloat())
        walk(array.floats());
    else
        walk(array.ints());
}

Arrays computeFloats(const Binary& row, const Call& call, const Value& result) {
    need(row.floats != nullptr, "expects booleans, got " + typeName(call.in(0).type));
    std::vector<float> values(static_cast<std::size_t>(elementCount(result.dims)));
    forEachValue(call.array(0), result.dims, [&](std::size_t i, double x) { values[i] = static_cast<float>(x); });
    for (std::size_t input = 1; input < call.inputCount(); ++input)
        forEachValue(call.array(input), result.dims,
                     [&](std::size_t i, double x) { values[i] = static_cast<float>(row.floats(values[i], x)); });
    if (call.node.op_type() == "Mean")
        for (float& value : values) value /= static_cast<float>(call.inputCount());
    if (row.makesBool)
        return {{TensorProto::BOOL, result.dims, std::vector<std::int64_t>(values.begin(), values.end())}};
    return {{result.type, result.dims, std::move(values)}};
}

// What the type of 8, 16 or 32 bits keeps of a value.
std::int64_t wrapped(std::int64_t value, int type) {
    switch (type) {
        case TensorProto::INT8:
            return static_cast<std::int8_t>(value);
        case TensorProto::UINT8:
            return static_cast<std::uint8_t>(value);
        case TensorProto::INT16:
            return static_cast<std::int16_t>(value);
        case TensorProto::UINT16:
            return static_cast<std::uint16_t>(value);
        case TensorProto::INT32:
            return static_cast<std::int32_t>(value);
        case TensorProto::UINT32:
            return static_cast<std::uint32_t>(value);
        case TensorProto::BOOL:
            return value != 0 ? 1 : 0;
        default:
            return value;
    }
}

std::int64_t intOf(float value, int type) {
    if (type == TensorProto::BOOL) return value != 0 ? 1 : 0;
    constexpr float kBeyond = 9223372036854775808.0F;  // 2^63
    if (!(value > -kBeyond)) return std::numeric_limits<std::int64_t>::min();
    if (value >= kBeyond) return std::numeric_limits<std::int64_t>::max();
    return wrapped(static_cast<std::int64_t>(value), type);
}

std::vector<std::int64_t> spreadInts(const Array& array, const Dims& dims) {
    std::vector<std::int64_t> result;
    const std::vector<std::int64_t>& values = array.ints();
    forEachOffset(dims, broadcastSteps(array.dims(), dims),
                  [&](std::int64_t offset) { result.push_back(values[static_cast<std::size_t>(offset)]); });
    return result;
}

Arrays computeInts(const Binary& row, const Call& call, const Value& result) {
    need(row.ints != nullptr, "expects floats, got " + typeName(call.in(0).type));
    const auto function = call.intAttribute("fmod", 0) != 0 ? remainderOfFmod : row.ints;
    std::vector<std::int64_t> values = spreadInts(call.array(0), result.dims);
    for (std::size_t i = 1; i < call.inputCount(); ++i) {
        const std::vector<std::int64_t> next = spreadInts(call.array(i), result.dims);
        for (std::size_t k = 0; k < values.size(); ++k) values[k] = wrapped(function(values[k], next[k]), result.type);
    }
    return {{result.type, result.dims, std::move(values)}};
}

Arrays computeBinary(const Call& call, const Values& results) {
    const Binary& row = rowOf(call);
    bool anyFloat = false;
    for (std::size_t i = 0; i < call.inputCount(); ++i) anyFloat = anyFloat || call.array(i).isFloat();
    const bool baseIsInt = call.node.op_type() == "Pow" && !call.array(0).isFloat();
    if (!anyFloat) return computeInts(row, call, results[0]);
    if (!baseIsInt) return computeFloats(row, call, results[0]);
    Arrays powers = computeFloats(row, call, valueOf(TensorProto::FLOAT, results[0].dims));
    std::vector<std::int64_t> ints;
    for (const float power : powers[0].floats()) ints.push_back(intOf(power, results[0].type));
    return {{results[0].type, results[0].dims, std::move(ints)}};
}

Values whereShapes(const Call& call) {
    return {valueOf(call.in(1).type, broadcastDims(broadcastDims(call.dims(0), call.dims(1)), call.dims(2)))};
}

Arrays computeWhere(const Call& call, const Values& results) {
    const Dims& dims = results[0].dims;
    const std::vector<std::int64_t> condition = spreadInts(call.array(0), dims);
    if (!call.array(1).isFloat()) {
        std::vector<std::int64_t> values = spreadInts(call.array(1), dims), others = spreadInts(call.array(2), dims);
        for (std::size_t i = 0; i < values.size(); ++i)
            if (condition[i] == 0) values[i] = others[i];
        return {{results[0].type, dims, std::move(values)}};
    }
    std::vector<float> values(condition.size());
    forEachValue(call.array(2), dims, [&](std::size_t i, double y) { values[i] = static_cast<float>(y); });
    forEachValue(call.array(1), dims, [&](std::size_t i, double x) {
        if (condition[i] != 0) values[i] = static_cast<float>(x);
    });
    return {{results[0].type, dims, std::move(values)}};
}

// Casts.

Values castShapes(const Call& call) {
    const bool isLike = call.node.op_type() == "CastLike";
    const int type = isLike ? call.in(1).type : static_cast<int>(call.intAttribute("to", 0));
    need(isFloatType(type) || isIntType(type), "casts to " + typeName(type));
    return {valueOf(type, call.dims(0))};
}

Arrays computeCast(const Call& call, const Values& results) {
    const Array& input = call.array(0);
    const int type = results[0].type;
    if (isFloatType(type)) {
        if (input.isFloat()) return {{type, input.dims(), input.floats()}};
        return {{type, input.dims(), std::vector<float>(input.ints().begin(), input.ints().end())}};
    }
    std::vector<std::int64_t> values;
    if (input.isFloat())
        for (const float value : input.floats()) values.push_back(intOf(value, type));
    else
        for (const std::int64_t value : input.ints()) values.push_back(wrapped(value, type));
    return {{type, input.dims(), std::move(values)}};
}

std::vector<Operator> makeRows() {
    std::vector<Operator> rows;
    for (const Binary& binary : kBinary) rows.push_back({binary.name, binaryShapes, computeBinary});
    rows.push_back({"Cast", castShapes, computeCast});
    rows.push_back({"CastLike", castShapes, computeCast});
    rows.push_back({"Where", whereShapes, computeWhere});
    return rows;
}

}  // namespace

const std::vector<Operator>& elementOperators() {
    static const std::vector<Operator> rows = makeRows();
    return rows;
}

}  // namespace convert
