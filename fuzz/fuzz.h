// Shared by the fuzz targets, which run in the zone of Berlin: one input
// carries several files, separated by lines of "====".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The input cut into count parts at its first count - 1 separators; the
// parts that are not there are empty.
std::vector<std::string> fuzz_sections(const uint8_t *data, size_t size, size_t count);

// Writes text to path, making its directory first.
void fuzz_write_file(const std::string &path, const std::string &text);
