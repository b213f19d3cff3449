#include "output_file.h"

#include "digests.h"
#include "files.h"
#include "handles.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr size_t kChunk = 262144;   // bytes that change threads at once
constexpr size_t kMostWaiting = 8;  // chunks

using Chunk = std::vector<unsigned char>;

}  // namespace

class OutputFile::Pipe {
public:
    ~Pipe() {
        if (thread_.joinable()) end();
    }

    Fault open(const std::string& path, const FileKey& key);
    Fault add(const char* bytes, size_t size);
    Fault finish(uint64_t* size, std::string* sha256);

private:
    using Lock = std::unique_lock<std::mutex>;

    void pass();
    void end();
    // The thread's part.
    void work();
    Fault take(const Chunk& chunk);
    Fault takeLast();
    Fault write(const unsigned char* bytes, size_t size);

    std::string path_;
    File file_;
    Cipher cipher_;  // null: nothing is encrypted
    Digest sha256_{EVP_sha256()};
    uint64_t size_ = 0;
    Chunk encrypted_;

    Chunk filling_;
    std::thread thread_;
    std::mutex mutex_;  // for all that follows
    std::condition_variable changed_;
    std::deque<Chunk> waiting_;
    std::deque<Chunk> empty_;  // to be filled again
    bool ended_ = false;
    Fault fault_;  // the first one
};

Fault OutputFile::Pipe::open(const std::string& path, const FileKey& key) {
    path_ = path;
    file_.reset(fopen(path.c_str(), "wbe"));
    if (file_ == nullptr) return fileFault(path, errno);
    setvbuf(file_.get(), nullptr, _IONBF, 0);  // the chunks are large enough
    if (key.present) {
        cipher_ = encryptionWith(key);
        if (cipher_ == nullptr) return fileFault(path, ENOMEM);
    }
    filling_.reserve(kChunk);
    thread_ = std::thread(&Pipe::work, this);
    return {};
}

Fault OutputFile::Pipe::add(const char* bytes, size_t size) {
    while (size > 0) {
        const size_t part = std::min(size, kChunk - filling_.size());
        filling_.insert(filling_.end(), bytes, bytes + part);
        bytes += part;
        size -= part;
        if (filling_.size() == kChunk) pass();
    }
    const Lock lock(mutex_);
    return fault_;
}

Fault OutputFile::Pipe::finish(uint64_t* size, std::string* sha256) {
    if (!filling_.empty()) pass();
    end();
    if (fault_) return fault_;
    if (fclose(file_.release()) != 0) return fileFault(path_, errno);
    std::string digest = sha256_.hex();
    if (digest.empty()) return fileFault(path_, ENOMEM);
    *size = size_;
    *sha256 = std::move(digest);
    return {};
}

// Hands the filled chunk to the thread, and takes an empty one.
void OutputFile::Pipe::pass() {
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

void OutputFile::Pipe::end() {
    {
        const Lock lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void OutputFile::Pipe::work() {
    for (Lock lock(mutex_);;) {
        changed_.wait(lock, [this] { return ended_ || !waiting_.empty(); });
        const bool last = waiting_.empty();
        Chunk chunk;
        if (!last) {
            chunk = std::move(waiting_.front());
            waiting_.pop_front();
        }
        if (!fault_) {  // after one, the chunks only go round
            lock.unlock();
            const Fault fault = last ? takeLast() : take(chunk);
            lock.lock();
            fault_ = fault;
        }
        if (last) return;
        empty_.push_back(std::move(chunk));
        changed_.notify_one();
    }
}

Fault OutputFile::Pipe::take(const Chunk& chunk) {
    if (cipher_ == nullptr) return write(chunk.data(), chunk.size());
    encrypted_.resize(kChunk + EVP_MAX_BLOCK_LENGTH);
    int size = 0;
    if (EVP_EncryptUpdate(cipher_.get(), encrypted_.data(), &size, chunk.data(),
                          static_cast<int>(chunk.size())) != 1)
        return fileFault(path_, ENOMEM);
    return write(encrypted_.data(), static_cast<size_t>(size));
}

Fault OutputFile::Pipe::takeLast() {
    if (cipher_ == nullptr) return {};
    unsigned char padding[EVP_MAX_BLOCK_LENGTH];
    int size = 0;
    if (EVP_EncryptFinal_ex(cipher_.get(), padding, &size) != 1) return fileFault(path_, ENOMEM);
    return write(padding, static_cast<size_t>(size));
}

Fault OutputFile::Pipe::write(const unsigned char* bytes, size_t size) {
    sha256_.add(bytes, size);
    size_ += size;
    return fwrite(bytes, 1, size, file_.get()) == size ? Fault() : fileFault(path_, errno);
}

OutputFile::OutputFile() : pipe_(std::make_unique<Pipe>()) {}

OutputFile::~OutputFile() = default;

Fault OutputFile::open(const std::string& path, const FileKey& key) {
    return pipe_->open(path, key);
}

Fault OutputFile::add(const char* bytes, size_t size) {
    return pipe_->add(bytes, size);
}

Fault OutputFile::finish(uint64_t* size, std::string* sha256) {
    return pipe_->finish(size, sha256);
}
