// Versions: of a spec, of the running kernel, and of the root file system as the device's script prints it.

#include "fuzz_target.h"
#include "shell_output.h"
#include "util/installed_version.h"

#include <cerrno>
#include <vector>

namespace {

constexpr PackedVersion kUnwritten = 0xDEADBEEFDEADBEEF;
constexpr size_t kFormattedSize = 24;
constexpr size_t kScriptOutputSize = 62;  // most bytes that the script may print

void checkResult(int rc, PackedVersion version) {
    require(rc == 0 || rc == EILSEQ || rc == EINVAL, "a string is a version or not");
    if (rc != 0) {
        require(version == kUnwritten, "the version is written on success only");
        return;
    }
    char formatted[kFormattedSize];
    PackedVersion again = 0;
    require(parseVersion(&again, formatVersion(version, formatted, sizeof formatted)) == 0,
            "a formatted version can be parsed");
    require(again == version, "nothing is lost by formatting and parsing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<char> string(data, data + size);
    string.push_back('\0');
    PackedVersion version = kUnwritten;
    checkResult(parseVersion(&version, string.data()), version);

    const ShellOutput printed(data, size);
    PackedVersion rootfs = kUnwritten;
    const int rc = getRootfsVersion(&rootfs);
    if (size > kScriptOutputSize) {
        require(rc == EOVERFLOW && rootfs == kUnwritten, "an output that was cut is no version");
    } else {
        checkResult(rc, rootfs);
    }
    if (version != kUnwritten && size <= kScriptOutputSize)
        require(rootfs == version, "the script's version is parsed as a spec's");

    // Last: it changes the string.
    PackedVersion kernel = kUnwritten;
    checkResult(parseKernelRelease(&kernel, string.data()), kernel);
    if (version != kUnwritten) require(kernel == version, "a version of digits and dots is a kernel's too");
    return 0;
}
