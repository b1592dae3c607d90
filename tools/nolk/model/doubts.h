// What a builder's call can have been given that its maker hardly meant. Each function adds to the doubts of an
// operation; none of them repeats what build itself refuses.
#pragma once

#include <nolk.h>

#include <cstdint>

#include "nolk/model/NotedOperation.h"

// Values that are NaN or infinite. The array may be null.
void doubtFloats(NotedOperation& operation, const char* what, const float* values, std::int64_t count);

// More values than x has channels, and what doubtFloats sees.
void doubtVector(NotedOperation& operation, const char* what, nolk::Vector vector, const nolk::TensorShape& x);

// Channels for which the square root's argument is not positive.
void doubtVariance(NotedOperation& operation, nolk::Vector variance, float epsilon, const nolk::TensorShape& x);

// Extents below 1.
void doubtDims(NotedOperation& operation, const char* what, nolk::DimsHW dims);

// Input channels that the weights have and x has not, or the other way round.
void doubtChannels(NotedOperation& operation, std::int64_t expected, const nolk::TensorShape& x);

// Extents of b that are neither a's nor 1.
void doubtBroadcast(NotedOperation& operation, const nolk::TensorShape& a, const nolk::TensorShape& b);

// Another number of elements.
void doubtElements(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to);

// A value outside low to high, which has no meaning: "axis must be 1 to 3, is 7: the output is left unwritten".
void doubtEnum(NotedOperation& operation, bool isError, const char* what, int value, int low, int high,
               const char* consequence);
