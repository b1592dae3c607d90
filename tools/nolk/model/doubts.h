// What a builder's call can have been given that its maker hardly meant. Each function adds to the doubts of an
// operation; none of them repeats what build itself refuses.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <vector>

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

// Inputs of a concatenation, whose extents off the axis (0 to 3) are not the first one's.
void doubtJoined(NotedOperation& operation, const std::vector<nolk::TensorShape>& shapes, int axis);

// A reduced shape with extents that are neither the input's nor 1, or with other samples.
void doubtReduced(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to);

// Samples or channels that only one of the two has: only rows and columns are resized.
void doubtResized(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to);

// Samples, channels and rows of a product's second input that are not looked at; build refuses one that has too few.
void doubtProduct(NotedOperation& operation, const nolk::TensorShape& a, const nolk::TensorShape& b);

// Another number of elements.
void doubtElements(NotedOperation& operation, const nolk::TensorShape& from, const nolk::TensorShape& to);

// A value outside low to high, which has no meaning: "axis must be 1 to 3, is 7: the output is left unwritten".
void doubtEnum(NotedOperation& operation, bool isError, const char* what, int value, int low, int high,
               const char* consequence);
