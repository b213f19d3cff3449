// The UBI device's volumes: a table in the state directory and one file for each volume.
//
// A static volume's file holds exactly the bytes written to it; a dynamic volume's file is always the
// volume's full size, 0xFF where nothing was written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

/// Usable bytes of one logical erase block: 128 KiB blocks less two pages of 2 KiB.
constexpr uint32_t kLebBytes = 126976;
constexpr uint32_t kMaxVolumes = 128;
/// As a requested id: the lowest free one.
constexpr uint32_t kAnyId = UINT32_MAX;

struct Volume {
    uint32_t id = 0;
    std::string name;
    bool dynamic = false;
    uint32_t lebs = 0;      // size reserved, in LEBs
    bool updating = false;  // an update began and never ended; the bytes are not valid
    uint64_t bytes = 0;     // stored; a dynamic volume always holds its full size
};

/// The volumes in order of their ids. `volumes` is written on success only.
/// \return 0 or a positive errno value.
[[nodiscard]] int listVolumes(const std::string& stateDir, std::vector<Volume>* volumes);

/// Finds a volume. `volume` is written on success only.
/// \return 0, ENOENT if there is none, or another positive errno value.
[[nodiscard]] int findVolume(const std::string& stateDir, const std::string& name, Volume* volume);
[[nodiscard]] int findVolumeById(const std::string& stateDir, uint32_t id, Volume* volume);

/// The number of LEBs that no volume has reserved.
/// \return 0 or a positive errno value.
[[nodiscard]] int freeLebs(const std::string& stateDir, uint32_t* lebs);

/// Makes an empty volume of at least `bytes` bytes. `made` may be null.
/// \return 0, EINVAL for a size of 0, an empty or overlong name or an id out of range, EEXIST for a name
/// or id in use, ENFILE when no id is free, ENOSPC when too few LEBs are free, or another errno value.
[[nodiscard]] int createVolume(const std::string& stateDir, const std::string& name, bool dynamic,
                               uint64_t bytes, uint32_t id, Volume* made);

/// Removes the volume and its bytes.
/// \return 0, ENOENT if there is no such volume, or another positive errno value.
[[nodiscard]] int removeVolume(const std::string& stateDir, uint32_t id);

/// Rewrites the volume with `size` bytes read from the descriptor `source` at its current offset. The volume
/// is marked as updating until the last byte is written. With `stopAfter` below `size` the update stops after
/// that many bytes and stays unfinished, as after a power failure.
/// \return 0, EFBIG if `size` does not fit, ENOENT, EIO if `source` ends early, or another errno value.
[[nodiscard]] int updateVolume(const std::string& stateDir, uint32_t id, int source, uint64_t size,
                               uint64_t stopAfter);

/// All bytes of the volume.
/// \return 0, ENOENT if there is no volume of that name, or another positive errno value.
[[nodiscard]] int readVolume(const std::string& stateDir, const std::string& name, std::string* bytes);

/// Replaces the volume's bytes.
/// \return 0, ENOENT, EFBIG if they do not fit, or another positive errno value.
int writeVolume(const std::string& stateDir, const std::string& name, const std::string& bytes);

/// The file of a volume's bytes.
inline std::string volumePath(const std::string& stateDir, uint32_t id) {
    return stateDir + "/ubi/volume." + std::to_string(id);
}

}  // namespace rovusim
