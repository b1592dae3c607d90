// Functions of single elements that nolk has no operation for, made of those that it has.
#pragma once

#include "convert/lower/Program.h"

namespace convert {

int squareRoot(Program& program, int x);  // of numbers from 0 to 1e16

// 1 - erf(|x|), to 2e-7.
int complementaryError(Program& program, int x);

}  // namespace convert
