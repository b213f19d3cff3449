// Plain work on files and their text: paths joined, a file into a buffer, a buffer into a descriptor.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Appends one '/' and `name` to `path`, whatever either of them holds: "a/" and "b" give "a//b", and ""
/// and "b" give "/b". Nothing is normalised. The string grows once.
/// \return `path`.
std::string& appendPath(std::string& path, const std::string& name);

/// The same, with the name as `length` characters at `name`.
std::string& appendPath(std::string& path, const char* name, size_t length);

/// Removes whitespace, as isspace() defines it, from the end of `string`, in place.
void trimTrailingSpace(char* string);

/// Reads at most `capacity` bytes of the file at `path` into `buffer`; adds no terminator.
///
/// A longer file yields its first `capacity` bytes and still succeeds: `*got == capacity` is the only
/// sign of it. `got` may be null, and is written on success only.
/// \return 0, or the positive errno value of the open, read or close that failed.
[[nodiscard]] int readFile(const char* path, void* buffer, uint32_t capacity, uint32_t* got);

/// Writes `size` bytes to the open descriptor `fd`.
///
/// With `doSync` the descriptor is synced and with `doClose` it is closed, in this order, on success and
/// on failure alike.
/// \return 0, or the positive errno value of the last step that failed: close before fsync before write.
[[nodiscard]] int writeFd(int fd, const void* data, uint32_t size, bool doClose, bool doSync);
