// ubimkvol, ubirmvol and ubiupdatevol: the tools that change volumes.

#include "launcher/tools/tool_call.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/volume_store.h"

#include <cerrno>
#include <cstdio>
#include <getopt.h>
#include <sys/stat.h>

namespace rovusim {
namespace {

struct MakeRequest {
    std::string name;
    bool dynamic = true;  // the default of the real tool
    uint64_t bytes = 0;
    uint32_t id = kAnyId;
    bool rest = false;  // all free LEBs
};

bool readMakeOption(const ToolCall& call, int c, MakeRequest* request) {
    const std::string value = optarg == nullptr ? "" : optarg;
    uint32_t number = 0;
    switch (c) {
    case 'N':
        request->name = value;
        return true;
    case 'm':
        request->rest = true;
        return true;
    case 'a':
        return true;
    case 't':
        request->dynamic = value == "dynamic";
        if (request->dynamic || value == "static") return true;
        ubiError(call, "bad volume type: \"" + value + "\"", 0);
        return false;
    case 's':
        if (parseBytes(value.c_str(), &request->bytes) && request->bytes > 0) return true;
        ubiError(call, "bad volume size: \"" + value + "\"", 0);
        return false;
    case 'S':
        if (parseNumber(value.c_str(), &number) && number > 0) {
            request->bytes = uint64_t{number} * kLebBytes;
            return true;
        }
        ubiError(call, "bad LEB count: \"" + value + "\"", 0);
        return false;
    case 'n':
        if (parseNumber(value.c_str(), &request->id)) return true;
        ubiError(call, "bad volume ID: \"" + value + "\"", 0);
        return false;
    default:
        return false;
    }
}

bool checkUbiDevice(const ToolCall& call) {
    if (optind < call.argc && std::string(call.argv[optind]) == kUbiDevice) return true;
    const std::string named = optind < call.argc ? call.argv[optind] : "";
    ubiError(call,
             named.empty() ? "UBI device name was not specified" : "error while probing \"" + named + "\"",
             named.empty() ? 0 : ENODEV);
    return false;
}

int sizeOfImage(const ToolCall& call, uint64_t* size) {
    const std::string& path = call.args.back();
    struct stat info;
    if (call.image < 0 || fstat(call.image, &info) != 0)
        return ubiError(call, "cannot open \"" + path + "\"", ENOENT);
    if (!S_ISREG(info.st_mode)) return ubiError(call, "\"" + path + "\" is not a regular file", 0);
    *size = static_cast<uint64_t>(info.st_size);
    return 0;
}

}  // namespace

int ubimkvol(const ToolCall& call) {
    const option known[] = {
        {"vol_id", required_argument, nullptr, 'n'},    {"name", required_argument, nullptr, 'N'},
        {"type", required_argument, nullptr, 't'},      {"size", required_argument, nullptr, 's'},
        {"lebs", required_argument, nullptr, 'S'},      {"maxavsize", no_argument, nullptr, 'm'},
        {"alignment", required_argument, nullptr, 'a'}, {nullptr, 0, nullptr, 0},
    };
    MakeRequest request;
    for (int c = getopt_long(call.argc, call.argv, "n:N:t:s:S:ma:", known, nullptr); c != -1;
         c = getopt_long(call.argc, call.argv, "n:N:t:s:S:ma:", known, nullptr)) {
        if (!readMakeOption(call, c, &request)) return kUbiFailure;
    }
    if (!checkUbiDevice(call)) return kUbiFailure;
    if (request.name.empty()) return ubiError(call, "volume name was not specified", 0);
    if (request.rest) {
        uint32_t left = 0;
        if (int rc = freeLebs(call.stateDir, &left); rc != 0)
            return ubiError(call, "cannot read the UBI device", rc);
        request.bytes = uint64_t{left} * kLebBytes;
        if (left == 0) return ubiError(call, "UBI device does not have free logical eraseblocks", 0);
    }
    if (request.bytes == 0) return ubiError(call, "volume size was not specified", 0);

    Volume made;
    const int rc =
        createVolume(call.stateDir, request.name, request.dynamic, request.bytes, request.id, &made);
    if (rc != 0) return ubiError(call, "cannot UBI create volume", rc);
    call.reply->node = NodeChange::eMade;
    call.reply->volumeId = made.id;
    const uint64_t bytes = uint64_t{made.lebs} * kLebBytes;
    printf(
        "Volume ID %u, size %u LEBs (%llu bytes, %s), LEB size %u bytes (%s), %s, name \"%s\", alignment 1\n",
        made.id, made.lebs, static_cast<unsigned long long>(bytes), inUnits(bytes).c_str(), kLebBytes,
        inUnits(kLebBytes).c_str(), made.dynamic ? "dynamic" : "static", made.name.c_str());
    return 0;
}

int ubirmvol(const ToolCall& call) {
    const option known[] = {
        {"vol_id", required_argument, nullptr, 'n'},
        {"name", required_argument, nullptr, 'N'},
        {nullptr, 0, nullptr, 0},
    };
    std::string name;
    uint32_t id = kAnyId;
    for (int c = getopt_long(call.argc, call.argv, "n:N:", known, nullptr); c != -1;
         c = getopt_long(call.argc, call.argv, "n:N:", known, nullptr)) {
        if (c == '?') return kUbiFailure;
        if (c == 'N') name = optarg;
        if (c == 'n' && !parseNumber(optarg, &id))
            return ubiError(call, "bad volume ID: \"" + std::string(optarg) + "\"", 0);
    }
    if (!checkUbiDevice(call)) return kUbiFailure;
    if (name.empty() && id == kAnyId)
        return ubiError(call, "please, specify either volume ID or volume name", 0);
    if (!name.empty()) {
        Volume volume;
        if (int rc = findVolume(call.stateDir, name, &volume); rc != 0)
            return ubiError(call, "can't find volume \"" + name + "\" on UBI device \"" + kUbiDevice + "\"",
                            rc);
        id = volume.id;
    }
    const int rc = removeVolume(call.stateDir, id);
    if (rc != 0) return ubiError(call, "cannot UBI remove volume", rc == ENOENT ? ENODEV : rc);
    call.reply->node = NodeChange::eRemoved;
    call.reply->volumeId = id;
    return 0;
}

int ubiupdatevol(const ToolCall& call) {
    const option known[] = {{"truncate", no_argument, nullptr, 't'}, {nullptr, 0, nullptr, 0}};
    bool truncate = false;
    for (int c = getopt_long(call.argc, call.argv, "t", known, nullptr); c != -1;
         c = getopt_long(call.argc, call.argv, "t", known, nullptr)) {
        if (c == '?') return kUbiFailure;
        truncate = true;
    }
    const int words = call.argc - optind;
    if (words == 0) return ubiError(call, "UBI device name was not specified", 0);
    if (words == 1 && !truncate) return ubiError(call, "incorrect arguments, use -h for help", 0);
    const std::string node = call.argv[optind];
    uint32_t id = 0;
    Volume volume;
    if (!parseVolumeNode(node, &id) || findVolumeById(call.stateDir, id, &volume) != 0)
        return ubiError(call, "error while probing \"" + node + "\"", ENODEV);

    uint64_t size = 0;
    if (!truncate) {
        if (int failed = sizeOfImage(call, &size); failed != 0) return failed;
    }
    const uint64_t room = uint64_t{volume.lebs} * kLebBytes;
    if (size > room) {
        return ubiError(call,
                        "\"" + std::string(call.argv[optind + 1]) + "\" (size " + std::to_string(size) +
                            ") will not fit volume \"" + node + "\" (size " + std::to_string(room) + ")",
                        0);
    }
    const int rc = updateVolume(call.stateDir, id, call.image, size, call.half ? size / 2 : size);
    return rc == 0 ? 0 : ubiError(call, "cannot update \"" + node + "\"", rc);
}

}  // namespace rovusim
