// The target VM's persistent storage: one disk, so that what is written to it has one order.

#pragma once

#include "image_bytes.h"

#include <string>

/// Where the partitions lie. The target VM finds them by the partition table, in this order.
constexpr ByteRange kFlash = {size_t{1} << 20, size_t{64} << 20};          // /dev/vda1, UBI on it
constexpr ByteRange kEnvironment = {size_t{65} << 20, size_t{128} << 10};  // /dev/vda2, the boot loader's
constexpr ByteRange kApp0 = {size_t{66} << 20, size_t{4} << 20};           // /dev/vda3, ext4
constexpr size_t kDiskSize = size_t{70} << 20;                             // bytes

constexpr size_t kFlashBlockSize = 131072;  // bytes of a physical eraseblock

/// Makes the file `path` a new disk: its partition table, an empty flash, an empty environment, and the file system
/// in `app0Image`, which has the partition's size.
/// \return 0; EINVAL: another size; or the errno value of the step that failed.
int createDisk(const std::string& path, const std::string& app0Image);
