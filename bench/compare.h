// Registers two benchmarks, NAME/nolk and NAME/bare, for the reporter to set beside each other.
//   compare("softmax", {runNolk, &outputOfNolk}, {runBare, &outputOfBare}, 1e-6f);
// Both are run once first: results that differ by more than tolerance, absolute plus relative, end the program, because
// then the two do not compute the same. items: what one run gets through (images, say), 0 for nothing worth counting.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Contestant {
    std::function<void()> run;
    const std::vector<float>* output;  // lives as long as run; null: not compared
};

void compare(const std::string& name, const Contestant& nolk, const Contestant& bare, float tolerance, int items = 0);

// What has been compared, in that order.
const std::vector<std::string>& comparedNames();

// Floats in [-1, 1), the same on every machine.
std::vector<float> randomFloats(std::size_t count);
