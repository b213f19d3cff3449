// Small files as strings, read and replaced as a whole.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

/// Reads the whole file, whatever its bytes. `text` is written on success only.
/// \return 0, or the positive errno value of the open or read that failed.
[[nodiscard]] int readTextFile(const std::string& path, std::string* text);

/// The same for a file that a script inside may have made: a regular file of at most a mebibyte, and no link.
/// \return 0, EILSEQ for any other, ELOOP for a link, or another positive errno value.
[[nodiscard]] int readDeviceFile(const std::string& path, std::string* text);

/// Replaces the file by a temporary file and a rename, so that no reader sees a part of it.
/// \return 0, or a positive errno value; the old file is then unchanged.
[[nodiscard]] int replaceTextFile(const std::string& path, const std::string& text);

/// Writes all `size` bytes.
/// \return 0 or a positive errno value.
int writeFully(int fd, const char* bytes, size_t size);

/// The lines of `text` without their newlines. A last line need not have one.
std::vector<std::string> splitLines(const std::string& text);

/// Makes the directory and all missing directories above it.
/// \return 0 or a positive errno value.
[[nodiscard]] int makeDirectories(const std::string& path);

/// Removes all that is in the directory.
/// \return 0 or a positive errno value.
[[nodiscard]] int emptyDirectory(const std::string& path);

}  // namespace rovusim
