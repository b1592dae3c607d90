// Operators that make each element of the result from one element of the input: one row, one function.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

// A function of x, with the operator's attributes at hand.
using Function = double (*)(double x, const double* attributes);

// Attributes are named with what they are when a node leaves them out.
struct Attribute {
    const char* name;
    double otherwise;
};

struct Unary {
    const char* name;
    Function function;
    Attribute attributes[2];
};

double sigmoid(double x) { return x >= 0 ? 1 / (1 + std::exp(-x)) : std::exp(x) / (1 + std::exp(x)); }
double softplus(double x) { return std::max(x, 0.0) + std::log1p(std::exp(-std::abs(x))); }
double limited(double x, double low, double high) { return x < low ? low : x > high ? high : x; }
double sign(double x) { return x > 0 ? 1 : x < 0 ? -1 : x; }

const Unary kUnary[] = {
    {"Abs", [](double x, const double*) { return std::abs(x); }, {}},
    {"Acos", [](double x, const double*) { return std::acos(x); }, {}},
    {"Acosh", [](double x, const double*) { return std::acosh(x); }, {}},
    {"Asin", [](double x, const double*) { return std::asin(x); }, {}},
    {"Asinh", [](double x, const double*) { return std::asinh(x); }, {}},
    {"Atan", [](double x, const double*) { return std::atan(x); }, {}},
    {"Atanh", [](double x, const double*) { return std::atanh(x); }, {}},
    {"Ceil", [](double x, const double*) { return std::ceil(x); }, {}},
    {"Celu",
     [](double x, const double* a) { return std::max(x, 0.0) + std::min(0.0, a[0] * std::expm1(x / a[0])); },
     {{"alpha", 1}}},
    {"Cos", [](double x, const double*) { return std::cos(x); }, {}},
    {"Cosh", [](double x, const double*) { return std::cosh(x); }, {}},
    {"Elu", [](double x, const double* a) { return x < 0 ? a[0] * std::expm1(x) : x; }, {{"alpha", 1}}},
    {"Erf", [](double x, const double*) { return std::erf(x); }, {}},
    {"Exp", [](double x, const double*) { return std::exp(x); }, {}},
    {"Floor", [](double x, const double*) { return std::floor(x); }, {}},
    {"HardSigmoid",
     [](double x, const double* a) { return limited(a[0] * x + a[1], 0, 1); },
     {{"alpha", 0.2F}, {"beta", 0.5}}},
    {"HardSwish", [](double x, const double*) { return x * limited(x / 6 + 0.5, 0, 1); }, {}},
    {"LeakyRelu", [](double x, const double* a) { return x < 0 ? a[0] * x : x; }, {{"alpha", 0.01F}}},
    {"Log", [](double x, const double*) { return std::log(x); }, {}},
    {"Mish", [](double x, const double*) { return x * std::tanh(softplus(x)); }, {}},
    {"Neg", [](double x, const double*) { return -x; }, {}},
    {"Reciprocal", [](double x, const double*) { return 1 / x; }, {}},
    {"Relu", [](double x, const double*) { return x < 0 ? 0 : x; }, {}},
    {"Round", [](double x, const double*) { return std::nearbyint(x); }, {}},
    {"Selu",
     [](double x, const double* a) { return a[1] * (x > 0 ? x : a[0] * std::expm1(x)); },
     {{"alpha", 1.67326319217681884765625}, {"gamma", 1.05070102214813232421875}}},
    {"Shrink",
     [](double x, const double* a) { return x < -a[0]  ? x + a[1]
                                            : x > a[0] ? x - a[1]
                                                       : 0; },
     {{"lambd", 0.5}, {"bias", 0}}},
    {"Sigmoid", [](double x, const double*) { return sigmoid(x); }, {}},
    {"Sign", [](double x, const double*) { return sign(x); }, {}},
    {"Sin", [](double x, const double*) { return std::sin(x); }, {}},
    {"Sinh", [](double x, const double*) { return std::sinh(x); }, {}},
    {"Softplus", [](double x, const double*) { return softplus(x); }, {}},
    {"Softsign", [](double x, const double*) { return x / (1 + std::abs(x)); }, {}},
    {"Sqrt", [](double x, const double*) { return std::sqrt(x); }, {}},
    {"Tan", [](double x, const double*) { return std::tan(x); }, {}},
    {"Tanh", [](double x, const double*) { return std::tanh(x); }, {}},
    {"ThresholdedRelu", [](double x, const double* a) { return x > a[0] ? x : 0; }, {{"alpha", 1}}},
};

Array applied(const Unary& row, const Call& call) {
    double attributes[2] = {};
    for (int i = 0; i < 2; ++i)
        if (row.attributes[i].name != nullptr)
            attributes[i] = call.floatAttribute(row.attributes[i].name, row.attributes[i].otherwise);
    const std::vector<float>& input = call.floats(0);
    std::vector<float> result(input.size());
    for (std::size_t i = 0; i < input.size(); ++i) result[i] = static_cast<float>(row.function(input[i], attributes));
    return {call.in(0).type, call.dims(0), std::move(result)};
}

// The operators of the table that integers have too.
Array appliedToInts(const std::string& name, const Call& call) {
    std::vector<std::int64_t> result = call.array(0).ints();
    for (std::int64_t& x : result) {
        if (name == "Abs")
            x = x < 0 ? -x : x;
        else if (name == "Neg")
            x = -x;
        else if (name == "Sign")
            x = x > 0 ? 1 : x < 0 ? -1 : 0;
        else if (name == "Relu")
            x = std::max<std::int64_t>(x, 0);
        else if (name != "Floor" && name != "Ceil" && name != "Round")
            throw OnnxError("expects floats, got " + typeName(call.in(0).type));
    }
    return {call.in(0).type, call.dims(0), std::move(result)};
}

Arrays computeUnary(const Call& call, const Values&) {
    const std::string& name = call.node.op_type();
    if (!call.array(0).isFloat()) return {appliedToInts(name, call)};
    const Unary* row =
        std::find_if(std::begin(kUnary), std::end(kUnary), [&](const Unary& u) { return u.name == name; });
    return {applied(*row, call)};
}

double gelu(double x) { return 0.5 * x * (1 + std::erf(x / std::sqrt(2.0))); }
double geluOfTanh(double x) {
    const double kTwoOverPi = std::sqrt(2 / std::acos(-1.0));
    return 0.5 * x * (1 + std::tanh(kTwoOverPi * (x + 0.044715 * x * x * x)));
}

Arrays computeGelu(const Call& call, const Values&) {
    const std::string form = call.stringAttribute("approximate", "none");
    need(form == "none" || form == "tanh", "approximate " + inQuotes(form) + " is not known");
    std::vector<float> result = call.floats(0);
    for (float& x : result) x = static_cast<float>(form == "none" ? gelu(x) : geluOfTanh(x));
    return {{call.in(0).type, call.dims(0), std::move(result)}};
}

Values boolShapes(const Call& call) { return {valueOf(onnx::TensorProto::BOOL, call.dims(0))}; }

Arrays computeTest(const Call& call, const Values&) {
    const std::string& name = call.node.op_type();
    std::vector<std::int64_t> result;
    if (name == "Not") {
        for (const std::int64_t x : call.array(0).ints()) result.push_back(x == 0 ? 1 : 0);
    } else {
        const bool high = call.intAttribute("detect_positive", 1) != 0;
        const bool low = call.intAttribute("detect_negative", 1) != 0;
        for (const float x : call.floats(0))
            result.push_back(name == "IsNaN" ? std::isnan(x) : std::isinf(x) && (x > 0 ? high : low));
    }
    return {{onnx::TensorProto::BOOL, call.dims(0), std::move(result)}};
}

// A limit of Clip, which was an attribute before opset 11. Nothing when there is none.
std::optional<double> limitOf(const Call& call, const char* name, std::size_t input) {
    if (call.opset >= 11) return call.has(input) ? std::optional<double>(call.scalar(input, name)) : std::nullopt;
    return call.hasAttribute(name) ? std::optional<double>(call.floatAttribute(name, 0)) : std::nullopt;
}

Arrays computeClip(const Call& call, const Values&) {
    const auto low = limitOf(call, "min", 1), high = limitOf(call, "max", 2);
    const auto clip = [&](auto x) {
        using Element = decltype(x);
        if (low && x < static_cast<Element>(*low)) x = static_cast<Element>(*low);
        return high && x > static_cast<Element>(*high) ? static_cast<Element>(*high) : x;
    };
    const Array& input = call.array(0);
    if (!input.isFloat()) {
        std::vector<std::int64_t> ints = input.ints();
        for (std::int64_t& x : ints) x = clip(x);
        return {{input.type(), input.dims(), std::move(ints)}};
    }
    std::vector<float> floats = input.floats();
    for (float& x : floats) x = clip(x);
    return {{input.type(), input.dims(), std::move(floats)}};
}

Values clipShapes(const Call& call) {
    limitOf(call, "min", 1);
    limitOf(call, "max", 2);
    return asFirstInput(call);
}

std::vector<Operator> makeRows() {
    std::vector<Operator> rows;
    for (const Unary& unary : kUnary) rows.push_back({unary.name, asFirstInput, computeUnary});
    rows.push_back({"Clip", clipShapes, computeClip});
    rows.push_back({"Gelu", asFirstInput, computeGelu});
    for (const char* name : {"IsInf", "IsNaN", "Not"}) rows.push_back({name, boolShapes, computeTest});
    return rows;
}

}  // namespace

const std::vector<Operator>& unaryOperators() {
    static const std::vector<Operator> rows = makeRows();
    return rows;
}

}  // namespace convert
