// The keys that the device's reader reads, and the one word that it knows among the scripts.

#pragma once

#include <string>
#include <vector>

/// In place of a script's name: ends a run with success.
constexpr char kEndOfRun[] = "exit_success";

/// Of the spec itself, and of an image.
inline const std::vector<std::string> kSpecKeys = {
    "version", "hardware", "clone_overlay", "encr_key_offset", "script_url", "script_hash", "script_dlsize"};
inline const std::vector<std::string> kImageKeys = {"type",    "update",   "imsize",  "dlsize",
                                                    "url",     "hash",     "image",   "image_md5",
                                                    "preinst", "postinst", "version", "dep"};
