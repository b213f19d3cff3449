// One file of an update onto the device, whole and in plain form.

#pragma once

#include "file_key.h"
#include "progress.h"

#include <cstdint>
#include <string>

/// The patience of every download: retries after the first attempt, and seconds between two of them.
constexpr uint32_t kDownloadRetries = 4;
constexpr uint32_t kDownloadWait = 60;

/// Enters `state`, fetches `url` into the file at `path` and, with a key, decrypts it there. The limit and
/// the digest are those of the file as it travels. A dry run enters the state and logs what it would fetch; there is no
/// file then.
/// \param maxSize most bytes to accept; 0: no limit.
/// \param hash expected SHA-256; empty: no check.
/// \return 0, or the result of Downloader::run() or decryptFile() that failed.
[[nodiscard]] int32_t fetchFile(const std::string& url, const std::string& path, uint32_t maxSize,
                                const std::string& hash, UpdateState state, const FileKey& key);
