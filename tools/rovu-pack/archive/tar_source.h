// The bytes of a tar's file, read once: hashed by a second thread as they travel, and decrypted for whoever opens the tar.

#pragma once

#include "archive/chunk_worker.h"
#include "archive/output_file.h"
#include "host/digests.h"
#include "host/fault.h"
#include "host/handles.h"
#include "host/progress_bar.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class TarSource {
public:
    /// Opens the regular file at `path`, which is decrypted if `key` is present.
    /// \param progress is told of the bytes as they are read; may be null. Must outlive the object.
    Fault open(const std::string& path, const FileKey& key, WorkProgress* progress);

    /// Reads the next bytes, decrypted, which stay until the next call.
    /// \param size receives 0 at the end of the file.
    /// \return a fault of the file, or EINTR. What does not decrypt ends the bytes early, and is no fault here.
    Fault next(const unsigned char** bytes, size_t* size);

    /// Reads what is left.
    /// \param size receives the bytes of the file, `sha256` their hex digest; both on success only.
    Fault finish(uint64_t* size, std::string* sha256);

    /// EBADMSG, after finish(): another key encrypted the bytes, or they are not whole. A wrong key shows in the padding
    /// only, and not always.
    const Fault& cipherFault() const { return cipherFault_; }

private:
    Fault read(size_t* size);
    void decrypt(size_t size, const unsigned char** bytes, size_t* plainSize);
    void decryptLast(const unsigned char** bytes, size_t* plainSize);

    std::string path_;
    File file_;
    Cipher cipher_;  // null: nothing is decrypted
    WorkProgress* progress_ = nullptr;
    std::vector<unsigned char> read_;
    std::vector<unsigned char> plain_;
    uint64_t size_ = 0;  // bytes read
    bool isAtEnd_ = false;
    Fault cipherFault_;
    Digest sha256_{EVP_sha256()};
    std::unique_ptr<ChunkWorker> worker_;  // last: it uses the digest to its end
};
