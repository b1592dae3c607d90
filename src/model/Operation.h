// Describes operations: a row of the table in operations.h, and a call of the builder's method that the row stands for.
//   Call call{operationOf<&nolk::RunnerBuilder::leakyRelu>(), {x}, {0.1f}};  call.operation.call(builder, call);
// The fields of a row follow from the signature of the builder's method: leading tensors are its inputs, the parameters
// after them are its fields, in the order in which the file stores them.
#pragma once

#include <nolk.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

// Weights of which only one group's values are stored; all groups share them.
struct SharedWeights {
    nolk::Weights weights;
};

// The value of a field, which has one of these types. A nolk::Tensor is a constant.
using Argument = std::variant<float, nolk::Axis, nolk::BasicOp, nolk::DimsHW, nolk::LstmWeights, nolk::Padding,
                              nolk::Perm, nolk::ResizeMode, nolk::ResizeTransMode, SharedWeights, nolk::SlicePos,
                              nolk::Tensor, nolk::TensorLayout, nolk::TensorShape, nolk::Vector, nolk::Weights>;

struct Field {
    const char* name = nullptr;
    std::size_t kind = 0;  // the index of its type in Argument
};

struct Operation;

// One call of a builder. Arrays in the arguments are borrowed.
struct Call {
    const Operation& operation;
    std::vector<nolk::TensorX*> inputs;
    std::vector<Argument> arguments;  // one for each field
};

constexpr int kListOfInputs = -1;
constexpr std::size_t kMaxFields = 5;

struct Operation {
    const char* name;  // of the builder's method
    int code;          // in model files
    int inputCount;    // kListOfInputs: the record gives their number
    std::size_t fieldCount;
    std::array<Field, kMaxFields> fields;
    nolk::TensorX* (*call)(nolk::RunnerBuilder& builder, const Call& call);  // null for "output", which calls no method
    std::uint64_t key;                                                       // identifies the row, see operationOf
};

namespace operation {

// A number that identifies the function: a hash of its name and type. Its address would be simpler, but with sanitizers
// GCC does not accept a comparison of addresses as a constant expression.
template <typename T, T function>
constexpr std::uint64_t keyIn() {
    std::uint64_t hash = 14695981039346656037u;  // FNV-1a
    for (const char c : __PRETTY_FUNCTION__) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    return hash;
}

template <auto function>
inline constexpr std::uint64_t kKeyOf = keyIn<decltype(function), function>();

template <typename T>
inline constexpr bool kIsInput = std::is_same_v<T, nolk::TensorX*> || std::is_same_v<T, std::vector<nolk::TensorX*>>;

template <typename T, typename... Types>
constexpr std::size_t kindIn(const std::variant<Types...>*) {
    std::size_t kind = 0;
    static_cast<void>((... || (std::is_same_v<T, Types> || (++kind, false))));
    static_assert((std::is_same_v<T, Types> || ...), "Argument has no such alternative");
    return kind;
}

template <typename T>
constexpr Field fieldOf(const char* name) {
    return {name, kindIn<T>(static_cast<const Argument*>(nullptr))};
}

// Argument i of a call. The inputs count as the first arguments.
template <typename T, std::size_t i, std::size_t inputCount>
decltype(auto) argumentOf(const Call& call) {
    if constexpr (std::is_same_v<T, nolk::TensorX*>)
        return call.inputs[i];
    else if constexpr (kIsInput<T>)
        return (call.inputs);
    else
        return std::get<T>(call.arguments[i - inputCount]);
}

template <auto function, typename... Args>
struct Signature {
    static constexpr std::size_t kInputs = (std::size_t{kIsInput<Args>} + ... + 0);
    static constexpr std::size_t kFields = sizeof...(Args) - kInputs;
    static constexpr bool kHasList = (std::is_same_v<Args, std::vector<nolk::TensorX*>> || ...);

    template <std::size_t... i>
    static nolk::TensorX* callWith(nolk::RunnerBuilder& builder, const Call& call, std::index_sequence<i...>) {
        return std::invoke(function, builder, argumentOf<Args, i, kInputs>(call)...);
    }

    static nolk::TensorX* call(nolk::RunnerBuilder& builder, const Call& call) {
        return callWith(builder, call, std::index_sequence_for<Args...>());
    }

    template <std::size_t... i>
    static constexpr std::array<Field, kMaxFields> fields(const std::array<const char*, kFields>& names,
                                                          std::index_sequence<i...>) {
        return {fieldOf<std::tuple_element_t<i + kInputs, std::tuple<Args...>>>(names[i])...};
    }
};

template <auto function, typename... Args>
constexpr Signature<function, Args...> signatureOf(nolk::TensorX* (nolk::RunnerBuilder::*)(Args...));
template <auto function, typename... Args>
constexpr Signature<function, Args...> signatureOf(nolk::TensorX* (*)(nolk::RunnerBuilder&, Args...));

// Makes a row of the table. function is a method of the builder, or a function that takes a builder and the arguments
// as the file stores them, and calls a method. There is one name for each parameter that is not a tensor.
template <auto function, typename... Names>
constexpr Operation row(int code, const char* name, Names... fieldNames) {
    using S = decltype(signatureOf<function>(function));
    static_assert(sizeof...(Names) == S::kFields, "every parameter that is no tensor needs a name");
    return {name,
            code,
            S::kHasList ? kListOfInputs : static_cast<int>(S::kInputs),
            S::kFields,
            S::fields({fieldNames...}, std::make_index_sequence<S::kFields>()),
            &S::call,
            kKeyOf<function>};
}

}  // namespace operation
