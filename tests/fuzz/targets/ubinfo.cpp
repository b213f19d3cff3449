// What ubinfo prints of a volume.

#include "fuzz_target.h"
#include "shell_output.h"
#include "ubi_tools/ubi_volume.h"

#include <cerrno>

namespace {

constexpr uint32_t kUnwritten = 0xDEADBEEF;

bool holds(const std::string& output, const char* words) {
    return output.find(words) != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ShellOutput printed(data, size);
    const std::string output(charsOf(data), size);
    uint32_t id = kUnwritten;
    uint32_t bytes = kUnwritten;
    const int rc = getUbiVolumeInfo(&id, "k0_root", &bytes);
    require(rc == 0 || rc == EILSEQ, "the output has what is required or not");
    if (rc == 0) {
        require(holds(output, "ID:") && holds(output, "Size:"), "id and size were printed");
    } else {
        require(id == kUnwritten, "the id is written on success only");
    }

    uint32_t idAlone = kUnwritten;
    const int rcAlone = getUbiVolumeInfo(&idAlone, "k0_root", nullptr);
    if (rc == 0) require(rcAlone == 0 && idAlone == id, "the id does not depend on the size");
    require(rcAlone == 0 || idAlone == kUnwritten, "the id is written on success only");
    return 0;
}
