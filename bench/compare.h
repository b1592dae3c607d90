// Registers two benchmarks, NAME/nolk and NAME/bare, which the reporter compares.
//   compare("softmax", {runNolk, &outputOfNolk}, {runBare, &outputOfBare}, 1e-6f);
// Runs both once before. If the results differ by more than tolerance, absolute plus relative, it ends the program,
// because then the two do not compute the same. items: number of items, such as images, in one run; 0 to count none.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Contestant {
    std::function<void()> run;
    const std::vector<float>* output;  // lives as long as run; null: not compared
};

void compare(const std::string& name, const Contestant& nolk, const Contestant& bare, float tolerance, int items = 0);

// The names of all comparisons, in the order of registration.
const std::vector<std::string>& comparedNames();

// Floats in [-1, 1), the same on every machine.
std::vector<float> randomFloats(std::size_t count);
