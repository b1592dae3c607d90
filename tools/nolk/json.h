// JSON for the reports of several commands.
#pragma once

#include <nolk.h>

#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

// Always four extents, [n, c, h, w]. Reports have a separate field "dims", which is 1 for a matrix.
inline Json shapeJson(const nolk::TensorShape& shape) { return {shape.n, shape.c, shape.h, shape.w}; }

// Replaces bytes that are not UTF-8, which file names may contain.
inline std::string jsonText(const Json& json, int indent = 2) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}
