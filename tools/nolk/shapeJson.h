// A shape as programs read it: always four extents, [n, c, h, w], beside which "dims" tells a matrix (1).
#pragma once

#include <nolk.h>

#include <nlohmann/json.hpp>

inline nlohmann::ordered_json shapeJson(const nolk::TensorShape& shape) { return {shape.n, shape.c, shape.h, shape.w}; }
