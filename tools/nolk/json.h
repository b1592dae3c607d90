// What the reports for programs have in common.
#pragma once

#include <nolk.h>

#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

// Always four extents, [n, c, h, w], beside which "dims" tells a matrix (1).
inline Json shapeJson(const nolk::TensorShape& shape) { return {shape.n, shape.c, shape.h, shape.w}; }

// A file's name need not be text: bytes that are not UTF-8 are replaced.
inline std::string jsonText(const Json& json, int indent = 2) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}
