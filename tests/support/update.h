// The reference files of a device, as their format defines them and without the code under test.
//
// Updates made to order.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// Fletcher-32 over big-endian 16-bit words; a zero byte completes the last one.
uint32_t fletcher32(const std::string& bytes);

/// A file of these lines, each with its newline, and the line with their checksum.
std::string referenceFile(const std::string& lines);

/// Fields of a Lua table by name. The values are Lua expressions, taken verbatim; nil leaves a field out.
using LuaFields = std::map<std::string, std::string>;

/// Names and bytes of a tar's members, in order.
using TarMembers = std::vector<std::pair<std::string, std::string>>;

/// An image. Its fields override what its members give; the first member is the image itself.
struct UpdateImage {
    LuaFields fields;
    TarMembers members;
};

struct Update {
    LuaFields fields;                // override what the rest gives
    std::vector<std::string> steps;  // names of scripts, and of images
    TarMembers scripts;
    std::map<std::string, UpdateImage> images;  // by name; the name is the file's on the web
    std::string fileKey;                        // 48 bytes; empty: nothing is encrypted
};

/// Bytes that look like an image whose head names a version.
std::string imageBytes(const std::string& version, size_t size);

/// Writes the update's tars into `directory`, which the web shows at `url`. \return its spec, without a signature.
std::string writeUpdate(const Update& update, const std::string& directory, const std::string& url);
