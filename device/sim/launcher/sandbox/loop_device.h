// Read-only block devices over files, for volumes that programs must see as a device.
#pragma once

#include "util/descriptor.h"

#include <string>
#include <sys/types.h>

namespace rovusim {

struct LoopDevice {
    zem::Descriptor holder;  // the kernel detaches the device when its last descriptor is closed
    dev_t number = 0;
};

/// Attaches a free loop device to the file, which must hold whole sectors of 512 bytes.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int attachLoopDevice(const std::string& file, LoopDevice* loop);

}  // namespace rovusim
