// The volumes of the one UBI device, through the UBI command-line tools. Every write to flash goes through here.
//
// A volume is never updated in place: it is removed, created, written and read back, and nothing is undone. Only
// volumes of the inactive set are handed in, so whatever is left after a failure, the device still boots.

#pragma once

#include <cstdint>

/// The UBI device. A volume with id n has the node kUbiDevice + "_" + n.
constexpr char kUbiDevice[] = "/dev/ubi0";

/// Length of an MD5 digest as md5sum prints it.
constexpr uint32_t kMd5Length = 32;

/// The file in `tmpDir` to which makeUbiVolume() copies a source that is no regular file.
constexpr char kStagingName[] = "_img.tmp";

/// Looks a volume up by name.
/// \param id written on success.
/// \param size the volume's size in bytes, written as soon as it is found; null: not required.
/// \return 0; the exit status of ubinfo, which is how a volume that does not exist shows; EILSEQ if ubinfo
///         does not print what is required; or the positive value of a failure to run it.
[[nodiscard]] int getUbiVolumeInfo(uint32_t* id, const char* name, uint32_t* size);

/// Replaces the volume `name` by a new one of `size` bytes, writes `source` to it, and reads it back.
///
/// The old volume is removed first: after a failure it is gone, and the new one may be missing, empty or
/// partly written. A source that is no regular file is copied to the directory `tmpDir` until it has been
/// written. A dry run looks the volume up, announces the steps, and changes nothing.
/// \param dynamic a dynamic volume instead of a static one.
/// \param source null: the volume is left unwritten.
/// \param expectedMd5 a hex digest of kMd5Length characters, compared with regard to case; null: no read-back.
/// \return 0; EINVAL: `expectedMd5` has another length, and nothing was done; EBADF: the read-back failed or
///         did not match; otherwise the errno value, exit status or negated runCommandF() result of the
///         step that failed.
[[nodiscard]] int makeUbiVolume(const char* name, uint32_t size, bool dynamic, const char* source,
                                const char* expectedMd5, const char* tmpDir, bool dryRun);
