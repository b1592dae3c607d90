// The container of a model file, around its records: head, version, head info, scrambling, checksum.
#pragma once

#include <vector>

#include "writer/ModelFileOptions.h"

// Throws std::out_of_range for a version, a key, a length or a number of records that cannot be written.
void checkOptions(const ModelFileOptions& options);

// The bytes of the file with recordCount records, which stand in `records` one after the other.
std::vector<unsigned char> modelFile(const ModelFileOptions& options, int recordCount,
                                     const std::vector<unsigned char>& records);
