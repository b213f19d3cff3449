// MD5 and SHA-256, as the lower-case hexadecimal digits that a spec holds.

#pragma once

#include "work_progress.h"

#include <cstdint>
#include <string>

/// Digests of bytes in memory; empty if libcrypto fails.
std::string md5Digits(const std::string& bytes);
std::string sha256Digits(const std::string& bytes);

/// What a spec says about a file.
struct FileDigests {
    uint64_t size;  // bytes
    std::string md5;
    std::string sha256;
};

/// Reads the file at `path` once for all of it. `*digests` is written on success only.
/// \return 0, or a positive errno value with a sentence in `*error`.
int digestFile(const std::string& path, WorkProgress* progress, FileDigests* digests, std::string* error);
