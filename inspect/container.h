// Writes the container of a model file around its records: head, version, head info, scrambling, checksum.
#pragma once

#include <nolk_model.h>

#include <vector>

// Throws std::out_of_range for a version, a key, a length or a number of records that cannot be written.
void checkOptions(const nolk::ModelFileOptions& options);

// The bytes of the file. `records` holds recordCount records, one after the other.
std::vector<unsigned char> modelFile(const nolk::ModelFileOptions& options, int recordCount,
                                     const std::vector<unsigned char>& records);
