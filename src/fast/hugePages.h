// Large arrays in pages of 2 MB instead of 4 KB: the processor translates far fewer addresses then, and its prefetcher,
// which stops at the end of a page, fetches over longer distances. For arenas and packed weights. Where the system has
// no large pages, the arrays are ordinary ones.
#pragma once

#include <cstddef>

#include "memory/AlignedMemory.h"

// At least n floats, all 0, aligned to 64 bytes. Takes physical memory only where it is written, but large arrays in
// pages of 2 MB where the system has them. Throws std::bad_alloc.
AlignedMemory<float> zerosInHugePages(std::size_t n);
