// ubinfo: prints the UBI device and its volumes in the format of the real tool, and what the other UBI tools print and
// parse as well.

#include "launcher/tools/tool_call.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/volume_store.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

namespace rovusim {
namespace {

constexpr uint64_t kKiB = 1024;
constexpr uint64_t kMiB = 1024 * kKiB;
constexpr uint64_t kGiB = 1024 * kMiB;

std::string sizeText(uint64_t bytes) {
    const std::string units = inUnits(bytes);
    return std::to_string(bytes) + " bytes" + (units.empty() ? "" : ", " + units);
}

void printVolume(const Volume& volume) {
    const uint64_t reserved = uint64_t{volume.lebs} * kLebBytes;
    printf("Volume ID:   %u (on ubi0)\n", volume.id);
    printf("Type:        %s\n", volume.dynamic ? "dynamic" : "static");
    printf("Alignment:   1\n");
    printf("Size:        %u LEBs (%s)\n", volume.lebs, sizeText(reserved).c_str());
    if (!volume.dynamic) {
        const std::string units = inUnits(volume.bytes);
        printf("Data bytes:  %llu bytes", static_cast<unsigned long long>(volume.bytes));
        printf(units.empty() ? "\n" : " (%s)\n", units.c_str());
    }
    printf("State:       %s\n", volume.updating ? "corrupted" : "OK");
    printf("Name:        %s\n", volume.name.c_str());
    printf("Character device major/minor: %u:%u\n", kUbiMajor, volume.id + 1);
}

int printDevice(const ToolCall& call, bool all) {
    Device device;
    std::vector<Volume> volumes;
    uint32_t left = 0;
    int rc = loadDevice(call.stateDir, &device);
    if (rc == 0) rc = listVolumes(call.stateDir, &volumes);
    if (rc == 0) rc = freeLebs(call.stateDir, &left);
    if (rc != 0) return ubiError(call, "cannot get information about UBI device 0", rc);
    printf("ubi0\n");
    printf("Volumes count:                           %zu\n", volumes.size());
    printf("Logical eraseblock size:                 %s\n", sizeText(kLebBytes).c_str());
    printf("Total amount of logical eraseblocks:     %u (%s)\n", device.totalLebs,
           sizeText(uint64_t{device.totalLebs} * kLebBytes).c_str());
    printf("Amount of available logical eraseblocks: %u (%s)\n", left,
           sizeText(uint64_t{left} * kLebBytes).c_str());
    printf("Maximum count of volumes                 %u\n", kMaxVolumes);
    printf("Count of bad physical eraseblocks:       0\n");
    printf("Count of reserved physical eraseblocks:  20\n");
    printf("Current maximum erase counter value:     2\n");
    printf("Minimum input/output unit size:          2048 bytes\n");
    printf("Character device major/minor:            %u:0\n", kUbiMajor);
    printf("Present volumes:                        ");
    for (const Volume& volume : volumes)
        printf("%s %u", &volume == &volumes.front() ? "" : ",", volume.id);
    printf("\n");
    for (const Volume& volume : volumes) {
        if (!all) break;
        printf("\n");
        printVolume(volume);
    }
    return 0;
}

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

int ubinfo(const ToolCall& call) {
    const option known[] = {
        {"vol_id", required_argument, nullptr, 'n'},
        {"name", required_argument, nullptr, 'N'},
        {"all", no_argument, nullptr, 'a'},
        {nullptr, 0, nullptr, 0},
    };
    std::string name;
    uint32_t id = kAnyId;
    bool all = false;
    for (int c = getopt_long(call.argc, call.argv, "n:N:a", known, nullptr); c != -1;
         c = getopt_long(call.argc, call.argv, "n:N:a", known, nullptr)) {
        if (c == '?') return kUbiFailure;
        if (c == 'N') name = optarg;
        if (c == 'a') all = true;
        if (c == 'n' && !parseNumber(optarg, &id))
            return ubiError(call, "bad volume ID: \"" + std::string(optarg) + "\"", 0);
    }
    const std::string node = optind < call.argc ? call.argv[optind] : kUbiDevice;
    Volume probed;
    if (parseVolumeNode(node, &id)) {
        if (findVolumeById(call.stateDir, id, &probed) != 0)
            return ubiError(call, "error while probing \"" + node + "\"", ENOENT);
    } else if (node != kUbiDevice) {
        return ubiError(call, "error while probing \"" + node + "\"", ENODEV);
    }
    if (name.empty() && id == kAnyId) return printDevice(call, all);
    Volume volume;
    const int rc =
        name.empty() ? findVolumeById(call.stateDir, id, &volume) : findVolume(call.stateDir, name, &volume);
    const std::string which =
        name.empty() ? "UBI volume " + std::to_string(id) : "UBI volume \"" + name + "\"";
    if (rc != 0) return ubiError(call, "cannot get information about " + which + " on ubi0", rc);
    printVolume(volume);
    return 0;
}

}  // namespace rovusim
