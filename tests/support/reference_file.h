// The reference files of a device, as their format defines them and without the code under test.

#pragma once

#include <cstdint>
#include <string>

/// Fletcher-32 over big-endian 16-bit words; a zero byte completes the last one.
uint32_t fletcher32(const std::string& bytes);

/// A file of these lines, each with its newline, and the line with their checksum.
std::string referenceFile(const std::string& lines);
