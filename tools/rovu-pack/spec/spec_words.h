// The keys that the device's reader reads, and names that have a meaning to the device.

#pragma once

#include "ubi_tools/ubi_volume.h"
#include "work_dir.h"

#include <string>
#include <vector>

/// The device's own files in its work directory, apart from the images' tars, which are "img0" and so on.
constexpr const char* kDeviceFiles[] = {kSpecName, kScriptTar, "progress.tmp", kStagingName};

/// Of the spec itself, and of an image.
inline const std::vector<std::string> kSpecKeys = {
    "version", "hardware", "clone_overlay", "encr_key_offset", "script_url", "script_hash", "script_dlsize"};
inline const std::vector<std::string> kImageKeys = {"type",    "update",   "imsize",  "dlsize",
                                                    "url",     "hash",     "image",   "image_md5",
                                                    "preinst", "postinst", "version", "dep"};
