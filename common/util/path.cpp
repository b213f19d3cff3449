#include "util/path.h"

std::string& appendPath(std::string& path, const std::string& name) {
    path.reserve(path.size() + name.size() + 1);
    path += '/';
    path += name;
    return path;
}

std::string& appendPath(std::string& path, const char* name, size_t length) {
    return appendPath(path, std::string(name, length));
}
