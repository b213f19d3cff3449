// A file whose bytes are encrypted, hashed and written by a second thread while the caller makes the next ones.

#pragma once

#include "encryption.h"
#include "fault.h"

#include <cstdint>
#include <memory>
#include <string>

/// Memory is constant: a caller that is faster than the thread waits for it.
class OutputFile {
public:
    OutputFile();
    /// Ends the thread. A file that was not finished stays as far as it came.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Makes or truncates the file at `path`, encrypted if `key` is present.
    [[nodiscard]] Fault open(const std::string& path, const FileKey& key);

    /// Takes the next bytes. A fault may be that of earlier ones.
    [[nodiscard]] Fault add(const char* bytes, size_t size);

    /// Writes what is left, and waits until all of it is in the file.
    /// \param size receives the bytes of the file, `sha256` their hex digest; both on success only.
    [[nodiscard]] Fault finish(uint64_t* size, std::string* sha256);

private:
    class Pipe;
    std::unique_ptr<Pipe> pipe_;
};
