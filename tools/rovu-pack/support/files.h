// Whole files in one go. Every failure says which file it was and what the system said.

#pragma once

#include <string>
#include <sys/types.h>

/// Reads the regular file at `path` to its end into `*bytes`, which is written on success only.
/// \return 0, or a positive errno value with a sentence in `*error`: EINVAL for anything but a regular file.
int readWholeFile(const std::string& path, std::string* bytes, std::string* error);

/// Makes or replaces the file at `path` in one step: a reader sees the old bytes or all of the new ones. They
/// are on the disk before the name moves. A failure leaves the old file as it was.
/// \param mode permissions of the new file, which the process's mask still narrows.
/// \return 0, or a positive errno value with a sentence in `*error`.
int replaceFile(const std::string& path, const std::string& bytes, mode_t mode, std::string* error);

/// Makes a file that must not exist yet; one that could not be written whole is removed again.
/// \return 0, or a positive errno value with a sentence in `*error`: EEXIST, with nothing touched.
int createFile(const std::string& path, const std::string& bytes, mode_t mode, std::string* error);

/// Stores "PATH: what the system says about `code`" in `*error`. \return `code`.
int fileError(const std::string& path, int code, std::string* error);
