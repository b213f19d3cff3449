// Downloads one URL into one local file over a bad link: received bytes are kept and the rest is requested.

#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

/// Told about each chunk of a transfer: transfers finished before this one, and percent of the size limit.
using ProgressFn = std::function<void(int attempts, int percent)>;

/// A download. It lives on its caller's stack, owns no resource between two attempts, and leaves the file
/// to the caller, whatever became of it.
///
/// Invariants: `received` never exceeds `maxSize`; during a transfer the file lacks at most one block of it, which
/// the stream still holds; between two attempts the file is closed and holds exactly `received` bytes.
class Downloader {
public:
    Downloader(bool verboseTransfer, bool dry) : verbose(verboseTransfer), dryRun(dry) {}

    Downloader(const Downloader&) = delete;
    Downloader& operator=(const Downloader&) = delete;

    /// Sets what to fetch; a second call starts afresh.
    /// \param limit the most bytes that the file may hold; 0: no limit.
    /// \param digest the expected SHA-256 as a lower-case hex digest; empty: no check.
    /// \return 0, always.
    int setup(const std::string& source, const std::string& target, uint32_t limit,
              const std::string& digest);

    /// Transfers the file, with `retries` more attempts if the network fails. An attempt that failed within
    /// 20 seconds is followed by a wait of `waitSeconds`.
    /// \return 0: the file is complete and has the expected digest, or this is a dry run; EINVAL: setup()
    ///         was not called; EAGAIN: the network failed in the last attempt too, or opening or closing the
    ///         file failed with EAGAIN in the last attempt too; EBADMSG: the digest does not match; ENOMEM: no
    ///         libcurl handle; another positive errno value of opening or closing the file; or, negated, the
    ///         libcurl code of a failure that is not tried again.
    [[nodiscard]] int32_t run(uint32_t retries, uint32_t waitSeconds);

    // In the order in which they are made; all but `progress` are to be read only.
    uint32_t ready = 0;  // 1 once setup() has run
    bool verbose;        // libcurl is verbose, on standard error
    bool dryRun;         // run() transfers nothing
    std::string url;
    std::string path;
    std::string hash;
    uint32_t maxSize = 0;   // bytes; kNoLimit: any number
    FILE* file = nullptr;   // not null while a transfer runs
    uint32_t attempts = 0;  // transfers finished so far, whatever their outcome
    uint32_t received = 0;  // bytes accepted into the file; also where to resume
    ProgressFn progress;    // called for each chunk; may be empty

    static constexpr uint32_t kNoLimit = 0xFFFFFFFF;

private:
    [[nodiscard]] int32_t transferOnce();
};

/// Compares the SHA-256 of the file at `path` with `hash`, a lower-case hex digest.
/// \return 0 if they are equal; 1 in every other case, also if the file cannot be read.
[[nodiscard]] int verifySha256(const std::string& path, const std::string& hash);
