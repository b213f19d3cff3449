#include "files.h"

#include "image_bytes.h"

#include <cstring>
#include <stdexcept>

std::string readFileOrThrow(const std::string& path) {
    std::string bytes;
    if (int rc = readBytes(path, {}, &bytes); rc != 0) throw std::runtime_error(path + ": " + strerror(rc));
    return bytes;
}

void writeFileOrThrow(const std::string& path, const std::string& bytes) {
    if (int rc = writeSparse(path, bytes); rc != 0) throw std::runtime_error(path + ": " + strerror(rc));
}
