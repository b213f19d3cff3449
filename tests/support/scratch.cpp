#include "support/scratch.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

std::string makeDirectory() {
    std::filesystem::create_directories(ROVU_SCRATCH);
    std::string path = ROVU_SCRATCH "/XXXXXX";
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no scratch directory " + path);
    return path;
}

}  // namespace

ScratchDir::ScratchDir() : path(makeDirectory()) {}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw std::runtime_error("cannot write " + path);
}
