// Bytes of the images, whatever the byte order of the workstation.

#include "image_bytes.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sys/stat.h>

namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;  // reflected

std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table = {};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? kPolynomial : 0);
        table[byte] = crc;
    }
    return table;
}

}  // namespace

uint32_t word(const char* at) {
    unsigned char b[4];
    memcpy(b, at, sizeof b);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

uint32_t crc32(const char* bytes, size_t size) {
    static const std::array<uint32_t, 256> table = makeTable();
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i)
        crc = crc >> 8 ^ table[(crc ^ static_cast<unsigned char>(bytes[i])) & 0xFF];
    return crc;
}

int readWhole(const std::string& path, std::string* bytes) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "rbe"), fclose);
    if (file == nullptr) return errno;
    struct stat status;
    if (fstat(fileno(file.get()), &status) != 0) return errno;
    bytes->resize(static_cast<size_t>(status.st_size));
    return fread(&(*bytes)[0], 1, bytes->size(), file.get()) == bytes->size() ? 0 : EIO;
}
