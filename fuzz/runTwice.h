// Runs a network on values that include NaN, infinities and -0, as a host would. Every tensor has a heap block of its
// own size, so that a sanitizer sees an access beyond it.
#pragma once

#include <nolk.h>

#include <vector>

// Whether both runs succeeded.
bool runTwice(nolk::Runner& runner, const std::vector<nolk::TensorShape>& inputs,
              const std::vector<nolk::TensorShape>& outputs);
