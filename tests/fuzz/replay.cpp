// Runs a target over the files that the command line names, and over those in the folders that it names: the
// corpus as an ordinary test, without libFuzzer.

#include "fuzz_target.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace {

namespace fs = std::filesystem;

void replay(const fs::path& file) {
    // Named before it runs: a crash leaves no other trace of its input.
    fprintf(stderr, "%s\n", file.c_str());
    std::ifstream stream(file, std::ios::binary);
    require(stream.is_open(), "an input can be opened");
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    // A block of exactly the input's size, so that a sanitizer sees a read after its end.
    const auto block = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block.get());
    LLVMFuzzerTestOneInput(block.get(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            replay(argv[i]);
            ++count;
            continue;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(argv[i])) {
            replay(entry.path());
            ++count;
        }
    }
    require(count != 0, "there are inputs");
    return 0;
}
