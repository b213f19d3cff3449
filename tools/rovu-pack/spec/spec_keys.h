// The keys that the device's reader reads.

#pragma once

#include <string>
#include <vector>

/// Of the spec itself, and of an image.
inline const std::vector<std::string> kSpecKeys = {
    "version", "hardware", "clone_overlay", "encr_key_offset", "script_url", "script_hash", "script_dlsize"};
inline const std::vector<std::string> kImageKeys = {"type",    "update",   "imsize",  "dlsize",
                                                    "url",     "hash",     "image",   "image_md5",
                                                    "preinst", "postinst", "version", "dep"};
