#include "transfer_files.h"

#include "support/scratch.h"

#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>

MemoryDir::MemoryDir() : path_("/dev/shm/rovu-bench-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make a directory below /dev/shm");
}

MemoryDir::~MemoryDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string randomBytes(size_t size) {
    std::string bytes(size, '\0');
    std::mt19937_64 generator(1);
    size_t filled = 0;
    for (; filled + sizeof(uint64_t) <= size; filled += sizeof(uint64_t)) {
        const uint64_t value = generator();
        bytes.replace(filled, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
    }
    return bytes;
}

ServedFile::ServedFile(size_t size) {
    writeWholeFile(dir_.pathOf("file"), randomBytes(size));
    std::filesystem::create_directories(server_.directory());
    std::filesystem::create_symlink(dir_.pathOf("file"), server_.directory() + "/file");
}
