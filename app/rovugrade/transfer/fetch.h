// The files of an update onto the device: each whole and in plain form; and its spec, of which nothing is evaluated that
// was not verified first.

#pragma once

#include "run/progress.h"
#include "transfer/file_decryption.h"

#include <cstdint>
#include <lua.hpp>
#include <string>

/// Retry policy of every download: retries after the first attempt, and seconds between two of them.
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

/// Enters the state eStateDownloadingSpec, fetches the spec of `upgradeUrl` into `workDir`, checks its signature with
/// the key of `keyPath`, and evaluates it.
/// \return the Lua state with the spec's value, for readSpec(); null after a failure.
[[nodiscard]] lua_State* downloadSpec(const std::string& workDir);
