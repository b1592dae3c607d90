// Large arrays in large pages: the processor translates far fewer addresses then, and fetches ahead over longer ways.
#pragma once

#include <cstddef>

#include "memory/AlignedMemory.h"

// At least n floats, all 0, aligned to 64 bytes. Takes physical memory only where it is written, but large arrays in
// pages of 2 MB where the system has them. Throws std::bad_alloc.
AlignedMemory<float> zerosInHugePages(std::size_t n);
