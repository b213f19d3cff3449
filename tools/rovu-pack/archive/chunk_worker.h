// A second thread for the bytes that the caller makes or reads, so that both work at once.

#pragma once

#include "host/fault.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// Memory is constant: a caller that is faster than the thread waits for it.
class ChunkWorker {
public:
    using Chunk = std::vector<unsigned char>;

    /// \param take is called by the thread with the bytes in their order; not again after a fault.
    explicit ChunkWorker(std::function<Fault(const Chunk&)> take);
    /// Ends the thread, which takes what it was handed before.
    ~ChunkWorker();
    ChunkWorker(const ChunkWorker&) = delete;
    ChunkWorker& operator=(const ChunkWorker&) = delete;

    /// Hands over a copy of the next bytes. A fault may be that of earlier ones.
    [[nodiscard]] Fault add(const void* bytes, size_t size);

    /// Waits until all bytes are taken, and ends the thread.
    /// \return the first fault.
    [[nodiscard]] Fault finish();

private:
    using Lock = std::unique_lock<std::mutex>;

    void pass();
    void end();
    void work();

    const std::function<Fault(const Chunk&)> take_;
    Chunk filling_;
    std::mutex mutex_;  // for all that follows
    std::condition_variable changed_;
    std::deque<Chunk> waiting_;
    std::deque<Chunk> empty_;  // to be filled again
    bool ended_ = false;
    Fault fault_;         // the first one
    std::thread thread_;  // last: it uses the others from its start
};
