// The volumes of the one UBI device, through the UBI command-line tools.

#pragma once

#include <cstdint>

/// The UBI device. A volume with id n has the node kUbiDevice + "_" + n.
constexpr char kUbiDevice[] = "/dev/ubi0";

/// Length of an MD5 digest as md5sum prints it.
constexpr uint32_t kMd5Length = 32;

/// Looks a volume up by name.
/// \param id written on success.
/// \param size the volume's size in bytes, written as soon as it is found; null: not wanted.
/// \return 0; the exit status of ubinfo, which is how a volume that does not exist shows; EILSEQ if ubinfo
///         does not say what is wanted; or the positive value of a failure to run it.
int getUbiVolumeInfo(uint32_t* id, const char* name, uint32_t* size);

/// Replaces the volume `name` by a new one of `size` bytes, writes `source` to it, and reads it back.
///
/// The old volume is removed first: after a failure it is gone, and the new one may be missing, empty or
/// partly written. A source that is no regular file is copied to the directory `tmpDir` for the time of
/// the writing. A dry run looks the volume up, announces the steps, and changes nothing.
/// \param dynamic a dynamic volume instead of a static one.
/// \param source null: the volume is left unwritten.
/// \param expectedMd5 kMd5Length digits, compared case and all; null: no read-back.
/// \return 0; EINVAL: `expectedMd5` has another length, and nothing was done; EBADF: the read-back failed or
///         did not match; otherwise the errno value, exit status or negated runCommandF() result of the
///         step that failed.
int makeUbiVolume(const char* name, uint32_t size, bool dynamic, const char* source, const char* expectedMd5,
                  const char* tmpDir, bool dryRun);
