// A device's /tmp with a size of its own, as the memory of a device limits it.
//
// It is a tmpfs that only the run has: nothing is left mounted, however the run ends. Between runs its files stand in
// the state directory's `tmp`, like those of a /tmp without a limit.
#pragma once

#include "util/descriptor.h"

#include <cstdint>
#include <string>

namespace rovusim {

/// Makes a tmpfs of at most `bytes`, not yet mounted anywhere, with the files of the state directory's `tmp`.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int openLimitedTmp(const std::string& stateDir, uint64_t bytes, zem::Descriptor* tmpfs);

/// Mounts it. This process must be the one that enters the sandbox.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int mountLimitedTmp(int tmpfs, const std::string& target);

/// Replaces the files of the state directory's `tmp` by those of the tmpfs.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int keepLimitedTmp(int tmpfs, const std::string& stateDir);

/// A path of the tmpfs for this process, as long as the descriptor is open.
[[nodiscard]] std::string pathOfLimitedTmp(int tmpfs);

}  // namespace rovusim
