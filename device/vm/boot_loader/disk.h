// What all images of the device's storage have in common: ranges of bytes, big-endian numbers, and the checksum of
// IEEE 802.3.
//
// The target VM's persistent storage: one disk, so that what is written to it has one order.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Bytes of a file or of an image.
struct ByteRange {
    size_t offset = 0;
    size_t size = SIZE_MAX;  // all that follow
};

/// \return whether the two have a byte in common.
bool overlap(const ByteRange& a, const ByteRange& b);

/// The 32-bit number at `at`.
uint32_t word(const char* at);

/// CRC-32 without the final complement, as UBI has it.
uint32_t crc32(const char* bytes, size_t size);

/// Reads a range of the file at `path`.
/// \return 0; or a positive errno value, EIO if the file ends before the range does.
int readBytes(const std::string& path, const ByteRange& range, std::string* bytes);

/// Replaces the file at `path` by `bytes`, with holes where these are zeros.
/// \return 0 or a positive errno value.
int writeSparse(const std::string& path, const std::string& bytes);

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
