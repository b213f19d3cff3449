// The files that the comparisons of transfers work on: random bytes on a file system in memory, beside a web server.

#pragma once

#include "support/web_server.h"

#include <cstddef>
#include <string>

/// A directory in memory, below /dev/shm; it is removed with the scope. Both sides of a comparison write into it, so
/// that neither waits for a disk. Throws if it cannot be made.
class MemoryDir {
public:
    MemoryDir();
    ~MemoryDir();
    MemoryDir(const MemoryDir&) = delete;
    MemoryDir& operator=(const MemoryDir&) = delete;

    std::string pathOf(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// `size` random bytes.
std::string randomBytes(size_t size);

/// A file of `size` random bytes in memory, which nginx serves on loopback.
class ServedFile {
public:
    explicit ServedFile(size_t size);

    std::string url() const { return server_.url() + "/file"; }

    /// A file in memory to download into.
    std::string target() const { return dir_.pathOf("target"); }

private:
    const MemoryDir dir_;
    const WebServer server_;
};
