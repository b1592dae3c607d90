// The arguments of operations, from Python's objects. Arrays are borrowed: the object must outlive the argument.
//   call.arguments.push_back(argumentOf(operation, operation.fields[i], value));
// Throws TypeError or ValueError with the operation and the parameter. The forms of the objects are listed in
// describe_operations.py.
#pragma once

#include <string>

#include "arrays.h"
#include "model/Operation.h"

Argument argumentOf(const Operation& operation, const Field& field, py::handle value);

// "Padding": what kind of argument a field is.
const char* kindName(const Field& field);

// [c] is a matrix, [c, h, w] a tensor; of one sample.
nolk::TensorShape shapeOf(const std::string& name, py::handle value);
