// The core of a run: carries out the parts of the spec.
//
// First everything is fetched, then the parts are processed in the order of the spec: scripts
// run and images are flashed in turn. All writes go to the inactive set, so a walk that stops half-way leaves a
// device that still boots.

#pragma once

#include "transfer/file_decryption.h"
#include "ubi_tools/ref_checksums.h"
#include "update_spec/spec.h"

#include <cstdint>
#include <string>

/// Size of a buffer for a volume's name, its terminator included.
constexpr size_t kVolumeNameSize = 12;

/// How the walk over the parts ended.
enum WalkResult {
    eWalkFailed,
    eWalkDone,         // go on to the switch-over
    eWalkExitSuccess,  // the spec ends the run here, with success and without a switch
};

/// The boot sets as they are for the whole of a run.
struct BootSets {
    uint32_t active;
    uint32_t inactive;
};

/// One pair of volume and MD5 for each image flashed in this run, in the order of flashing.
extern RefChecksumList flashedVolumes;

/// The script that ends a run with success at its place in the list.
constexpr char kExitSuccess[] = "exit_success";

/// Fetches the tars of all images from `position` to the end of the list into `workDir`. Nothing of the
/// device has been touched when it returns.
/// \return whether all are there.
[[nodiscard]] bool downloadImages(UpdateSpecVer1* spec, UpdateSpecVer1::Part* position,
                                  const std::string& workDir, const FileKey& fileKey);

/// Carries out the parts from `position` to the end of the list, in list order, on the inactive set. Stops at
/// the first failure; nothing is undone.
[[nodiscard]] WalkResult walkParts(UpdateSpecVer1* spec, UpdateSpecVer1::Part* position,
                                   const std::string& workDir, const BootSets& sets);

/// Whether `part` is the script kExitSuccess. The whole name decides.
bool endsRun(const UpdateSpecVer1::Part& part);

/// Forms the name of the volume of `set` that an image goes to: "k1" for a kernel, "k1_root" for a root file
/// system. A script is a programming error.
/// \return 0; EOVERFLOW if the name does not fit.
[[nodiscard]] int make_ubiVolume(uint32_t set, const UpdateSpecVer1::Part& part,
                                 char (&name)[kVolumeNameSize]);
