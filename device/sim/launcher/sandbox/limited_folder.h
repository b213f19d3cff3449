// Folders of a device with a size of their own, as the memory or the flash of a device limits them.
//
// Each is a tmpfs that only the run has: nothing is left mounted, however the run ends. Between runs its files stand in
// the state directory, like those of a folder without a limit.
#pragma once

#include "util/descriptor.h"

#include <cstdint>
#include <string>

namespace rovusim {

struct LimitedFolder {
    std::string outside;    // of the state directory
    std::string mountedOn;  // another folder, on which only the device has the tmpfs
    uint64_t bytes = 0;
};

/// Mounts the tmpfs for the namespace of this process, and opens it.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int mountLimitedFolder(const LimitedFolder& folder, zem::Descriptor* tmpfs);

/// Puts the files of the state directory into the tmpfs.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int fillLimitedFolder(int tmpfs, const std::string& outside);

/// Replaces the files of the state directory by those of the tmpfs.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int keepLimitedFolder(int tmpfs, const std::string& outside);

/// A path of the tmpfs for this process, as long as the descriptor is open.
[[nodiscard]] std::string pathOfLimited(int tmpfs);

}  // namespace rovusim
