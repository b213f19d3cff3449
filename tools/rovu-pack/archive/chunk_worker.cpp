#include "archive/chunk_worker.h"

#include <algorithm>
#include <utility>

namespace {

constexpr size_t kChunk = 262144;   // bytes that change threads at once
constexpr size_t kMostWaiting = 8;  // chunks

}  // namespace

ChunkWorker::ChunkWorker(std::function<Fault(const Chunk&)> take) : take_(std::move(take)) {
    filling_.reserve(kChunk);
    thread_ = std::thread(&ChunkWorker::work, this);
}

ChunkWorker::~ChunkWorker() {
    if (thread_.joinable()) end();
}

Fault ChunkWorker::add(const void* bytes, size_t size) {
    const auto* next = static_cast<const unsigned char*>(bytes);
    while (size > 0) {
        const size_t part = std::min(size, kChunk - filling_.size());
        filling_.insert(filling_.end(), next, next + part);
        next += part;
        size -= part;
        if (filling_.size() == kChunk) pass();
    }
    const Lock lock(mutex_);
    return fault_;
}

Fault ChunkWorker::finish() {
    if (!filling_.empty()) pass();
    end();
    return fault_;
}

// Hands the filled chunk to the thread, and takes an empty one.
void ChunkWorker::pass() {
    Lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_.size() < kMostWaiting || fault_; });
    waiting_.push_back(std::move(filling_));
    filling_ = Chunk();
    if (!empty_.empty()) {
        filling_ = std::move(empty_.front());
        empty_.pop_front();
    }
    filling_.clear();
    filling_.reserve(kChunk);
    changed_.notify_one();
}

void ChunkWorker::end() {
    {
        const Lock lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void ChunkWorker::work() {
    for (Lock lock(mutex_);;) {
        changed_.wait(lock, [this] { return ended_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        Chunk chunk = std::move(waiting_.front());
        waiting_.pop_front();
        if (!fault_) {  // after one, the chunks only go round
            lock.unlock();
            const Fault fault = take_(chunk);
            lock.lock();
            fault_ = fault;
        }
        empty_.push_back(std::move(chunk));
        changed_.notify_one();
    }
}
