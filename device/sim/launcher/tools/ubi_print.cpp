#include "launcher/tools/ubi_print.h"

#include "launcher/tools/tool_call.h"
#include "rovu_sim/sandbox_paths.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rovusim {
namespace {

constexpr uint64_t kKiB = 1024;
constexpr uint64_t kMiB = 1024 * kKiB;
constexpr uint64_t kGiB = 1024 * kMiB;

}  // namespace

std::string inUnits(uint64_t bytes) {
    const char* unit = "KiB";
    uint64_t scale = kKiB;
    if (bytes > kMiB) {
        unit = "MiB";
        scale = kMiB;
    }
    if (bytes > kGiB) {
        unit = "GiB";
        scale = kGiB;
    }
    if (bytes < kKiB) return "";
    char text[64];
    snprintf(text, sizeof text, "%.1f %s", static_cast<double>(bytes) / static_cast<double>(scale), unit);
    return text;
}

bool parseBytes(const char* text, uint64_t* bytes) {
    if (text[0] < '0' || text[0] > '9') return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = strtoull(text, &end, 0);
    if (errno != 0) return false;
    const std::string unit = end;
    uint64_t scale = 1;
    if (unit == "KiB") scale = kKiB;
    if (unit == "MiB") scale = kMiB;
    if (unit == "GiB") scale = kGiB;
    if (scale == 1 && !unit.empty()) return false;
    if (number > UINT64_MAX / scale) return false;
    *bytes = number * scale;
    return true;
}

bool parseNumber(const char* text, uint32_t* number) {
    if (text[0] == '\0' || strspn(text, "0123456789") != strlen(text)) return false;
    errno = 0;
    const unsigned long value = strtoul(text, nullptr, 10);
    if (errno != 0 || value > UINT32_MAX) return false;
    *number = static_cast<uint32_t>(value);
    return true;
}

bool parseVolumeNode(const std::string& path, uint32_t* id) {
    const std::string head = std::string(kUbiDevice) + "_";
    if (path.compare(0, head.size(), head) != 0) return false;
    return parseNumber(path.c_str() + head.size(), id);
}

int ubiError(const ToolCall& call, const std::string& text, int error) {
    fprintf(stderr, "%s: error!: %s\n", call.tool.c_str(), text.c_str());
    if (error != 0) {
        const int indent = static_cast<int>(call.tool.size()) + 2;
        fprintf(stderr, "%*serror %d (%s)\n", indent, "", error, strerror(error));
    }
    return kUbiFailure;
}

}  // namespace rovusim
