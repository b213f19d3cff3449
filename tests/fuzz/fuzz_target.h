// What the fuzz targets share.
//
// A target is one file in targets/: it hands one input to one reader of foreign bytes, and checks what must
// hold whatever the input. The same file is linked with libFuzzer (preset "fuzz") or with replay.cpp (all
// others).

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// One input. The name and the type are libFuzzer's.
/// \return 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Aborts, which a fuzzer reports as a crash, unless `holds`.
/// \param property what must hold, for the message.
void require(bool holds, const char* property);

/// The input as characters.
inline const char* charsOf(const uint8_t* data) {
    return reinterpret_cast<const char*>(data);
}

/// A file that never reaches a disk, for code that takes a path.
class MemoryFile {
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Replaces the contents.
    void fill(const void* bytes, size_t size);

    const std::string& path() const { return path_; }

private:
    int fd_;
    std::string path_;
};
