#include "image_bytes.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr size_t kChunk = 1 << 20;

}  // namespace

uint32_t word(const char* at) {
    unsigned char b[4];
    memcpy(b, at, sizeof b);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

uint32_t crc32(const char* bytes, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= static_cast<unsigned char>(bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    return crc;
}

int readWhole(const std::string& path, std::string* bytes) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
    if (file == nullptr) return errno;
    std::vector<char> chunk(kChunk);
    while (const size_t got = fread(chunk.data(), 1, chunk.size(), file.get()))
        bytes->append(chunk.data(), got);
    return ferror(file.get()) != 0 ? EIO : 0;
}
