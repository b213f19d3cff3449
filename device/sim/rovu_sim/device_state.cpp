#include "rovu_sim/device_state.h"

#include "rovu_sim/boot_env.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/volume_store.h"
#include "util/descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace rovusim {
namespace {

constexpr size_t kHeadBytes = 256;  // where a volume may name its version

std::string volumeName(unsigned set, const char* suffix) {
    return "k" + std::to_string(set) + suffix;
}

// Bytes of an image: different for each seed, and the same on every host.
std::string plausibleBytes(const std::string& head, uint32_t seed, size_t size) {
    std::string bytes = head;
    uint32_t value = seed;
    while (bytes.size() < size) {
        value = value * 1664525U + 1013904223U;
        bytes += static_cast<char>(value >> 24);
    }
    return bytes;
}

struct NewVolume {
    const char* suffix;
    bool dynamic;
    uint32_t lebs;
    size_t bytes;
};
constexpr NewVolume kNewVolumes[] = {
    {"", false, 4, 300000},
    {"_root", false, 8, 700000},
    {"_data", true, 3, size_t{3} * kLebBytes},
};

int fillNewVolumes(const std::string& stateDir, const DeviceOptions& options) {
    for (unsigned set = 0; set < 2; ++set) {
        for (const NewVolume& shape : kNewVolumes) {
            Volume made;
            const uint64_t reserved = uint64_t{shape.lebs} * kLebBytes;
            const std::string name = volumeName(set, shape.suffix);
            if (int rc = createVolume(stateDir, name, shape.dynamic, reserved, kAnyId, &made); rc != 0)
                return rc;
            std::string head;
            if (name == volumeName(set, "")) head = "version=" + options.kernelRelease + "\n";
            if (name == volumeName(set, "_root")) head = "version=" + options.rootfsVersion + "\n";
            // The same images in both sets, as from the factory, and data of their own.
            const uint32_t seed = (shape.dynamic ? made.id : made.id % std::size(kNewVolumes)) + 1;
            if (int rc = writeVolume(stateDir, name, plausibleBytes(head, seed, shape.bytes)); rc != 0)
                return rc;
        }
    }
    return 0;
}

// Fills the new and empty state directory.
int fillNewDevice(const std::string& stateDir, const DeviceOptions& options) {
    for (const char* part : {"tmp", "app0/secrets/rovu", "ssh", "ubi", "run"}) {
        if (int rc = makeDirectories(stateDir + "/" + part); rc != 0) return rc;
    }
    if (chmod((stateDir + "/tmp").c_str(), 01777) != 0) return errno;
    Device device;
    device.model = options.model;
    device.kernelRelease = options.kernelRelease;
    device.rootfsVersion = options.rootfsVersion;
    device.totalLebs = options.totalLebs;
    device.tmpBytes = options.tmpBytes;
    device.root = options.root;
    if (int rc = saveDevice(stateDir, device); rc != 0) return rc;
    if (int rc = replaceTextFile(stateDir + "/ubi/table", ""); rc != 0) return rc;
    if (int rc = replaceTextFile(stateDir + "/calls.log", ""); rc != 0) return rc;
    if (int rc = setBootVariable(stateDir, "bootswitcher", "0A0A00"); rc != 0) return rc;
    return fillNewVolumes(stateDir, options);
}

// Why the set cannot boot; empty if it can.
std::string bootFault(const std::string& stateDir, unsigned set) {
    for (const char* suffix : {"", "_root"}) {
        const std::string name = volumeName(set, suffix);
        Volume volume;
        if (findVolume(stateDir, name, &volume) != 0) return "it has no volume " + name;
        if (volume.bytes == 0) return "its volume " + name + " is empty";
        if (volume.updating) return "its volume " + name + " is only partly written";
    }
    return "";
}

std::string rebootMark(const std::string& stateDir) {
    return stateDir + "/reboot-requested";
}

}  // namespace

int createDevice(const std::string& stateDir, const DeviceOptions& options) {
    // A script may leave a program here that is set-user-ID root: nobody else may reach it.
    if (mkdir(stateDir.c_str(), 0700) != 0) return errno;
    const int rc = fillNewDevice(stateDir, options);
    // A partial device would make the next attempt fail with EEXIST.
    if (rc != 0) removeDevice(stateDir);
    return rc;
}

void removeDevice(const std::string& stateDir) {
    std::error_code ignored;
    std::filesystem::remove_all(stateDir, ignored);
}

int loadDevice(const std::string& stateDir, Device* device) {
    std::string text;
    if (int rc = readTextFile(stateDir + "/device", &text); rc != 0) return rc == ENOTDIR ? ENOENT : rc;
    Device read;
    for (const std::string& line : splitLines(text)) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos) return EILSEQ;
        const std::string key = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (key == "model") read.model = value;
        if (key == "kernel") read.kernelRelease = value;
        if (key == "rootfs") read.rootfsVersion = value;
        if (key == "lebs") read.totalLebs = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 10));
        if (key == "tmp") read.tmpBytes = std::strtoull(value.c_str(), nullptr, 10);
        if (key == "root") read.root = value;
        if (key == "running") read.runningSet = value == "1" ? 1 : 0;
    }
    *device = read;
    return 0;
}

int saveDevice(const std::string& stateDir, const Device& device) {
    std::string text = "model=" + device.model + "\n";
    text += "kernel=" + device.kernelRelease + "\n";
    text += "rootfs=" + device.rootfsVersion + "\n";
    text += "lebs=" + std::to_string(device.totalLebs) + "\n";
    if (device.tmpBytes > 0) text += "tmp=" + std::to_string(device.tmpBytes) + "\n";
    if (!device.root.empty()) text += "root=" + device.root + "\n";
    text += "running=" + std::to_string(device.runningSet) + "\n";
    return replaceTextFile(stateDir + "/device", text);
}

std::string versionInVolume(const std::string& stateDir, const std::string& volume) {
    Volume found;
    if (findVolume(stateDir, volume, &found) != 0) return "";
    zem::Descriptor file(open(volumePath(stateDir, found.id).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) return "";
    char head[kHeadBytes];
    const ssize_t got = read(file.get(), head, sizeof head);
    if (got <= 0) return "";
    std::string text(head, static_cast<size_t>(got));
    // A line that is cut off after 256 bytes does not count; one that ends with the volume does.
    if (text.size() == sizeof head) text.erase(text.rfind('\n') + 1);
    const std::string key = "version=";
    for (const std::string& line : splitLines(text)) {
        if (line.compare(0, key.size(), key) == 0) return line.substr(key.size());
    }
    return "";
}

int kernelReleaseInUse(const std::string& stateDir, std::string* release) {
    Device device;
    if (int rc = loadDevice(stateDir, &device); rc != 0) return rc;
    const std::string named = versionInVolume(stateDir, volumeName(device.runningSet, ""));
    *release = named.empty() ? device.kernelRelease : named;
    return 0;
}

int rootfsVersionInUse(const std::string& stateDir, std::string* version) {
    Device device;
    if (int rc = loadDevice(stateDir, &device); rc != 0) return rc;
    const std::string named = versionInVolume(stateDir, volumeName(device.runningSet, "_root"));
    *version = named.empty() ? device.rootfsVersion : named;
    return 0;
}

std::string kernelCommandLine(unsigned runningSet) {
    return "console=ttyS0,115200 ubi.mtd=ubi root=ubi0:" + volumeName(runningSet, "_root") +
           " rootfstype=ubifs ro overlay=ubi0:" + volumeName(runningSet, "_data") + "\n";
}

int setToBoot(const std::string& stateDir, unsigned* set) {
    std::string value;
    if (int rc = getBootVariable(stateDir, "bootswitcher", &value); rc != 0) return rc;
    char* end = nullptr;
    const unsigned long number = std::strtoul(value.c_str(), &end, 16);
    if (end == value.c_str()) return EILSEQ;
    *set = (number & 0xFF) == 0 ? 0 : 1;
    return 0;
}

int restartDevice(const std::string& stateDir, std::string* why) {
    std::string unused;
    std::string& reason = why != nullptr ? *why : unused;
    zem::Descriptor lock;
    if (int rc = lockDevice(stateDir, &lock); rc != 0) {
        reason = rc == EBUSY ? "a command is running in the device" : "there is no device";
        return rc;
    }
    Device device;
    if (int rc = loadDevice(stateDir, &device); rc != 0) {
        reason = "the device's description cannot be read";
        return rc;
    }
    unsigned set = 0;
    if (int rc = setToBoot(stateDir, &set); rc != 0) {
        reason = "bootswitcher is missing or not a hexadecimal number";
        return rc;
    }
    if (const std::string fault = bootFault(stateDir, set); !fault.empty()) {
        reason = "set " + std::to_string(set) + " cannot boot: " + fault;
        return ENODEV;
    }
    device.runningSet = set;
    int rc = saveDevice(stateDir, device);
    if (rc == 0) rc = emptyDirectory(stateDir + "/tmp");
    if (rc == 0 && unlink(rebootMark(stateDir).c_str()) != 0 && errno != ENOENT) rc = errno;
    if (rc != 0) reason = "the state directory cannot be changed";
    return rc;
}

bool rebootRequested(const std::string& stateDir) {
    return access(rebootMark(stateDir).c_str(), F_OK) == 0;
}

int requestReboot(const std::string& stateDir) {
    return replaceTextFile(rebootMark(stateDir), "");
}

std::string outsidePath(const std::string& stateDir, const std::string& pathOnDevice) {
    const std::pair<const char*, const char*> places[] = {
        {"/tmp", "/tmp"}, {"/app0", "/app0"}, {"/etc/ssh", "/ssh"}};
    for (const auto& place : places) {
        const std::string inside = place.first;
        if (pathOnDevice == inside) return stateDir + place.second;
        if (pathOnDevice.compare(0, inside.size() + 1, inside + "/") == 0)
            return stateDir + place.second + pathOnDevice.substr(inside.size());
    }
    return "";
}

int putDeviceFile(const std::string& stateDir, const std::string& pathOnDevice, const std::string& bytes) {
    const std::string path = outsidePath(stateDir, pathOnDevice);
    if (path.empty()) return EINVAL;
    if (int rc = makeDirectories(path.substr(0, path.rfind('/'))); rc != 0) return rc;
    return replaceTextFile(path, bytes);
}

int lockDevice(const std::string& stateDir, zem::Descriptor* lock) {
    zem::Descriptor file(open((stateDir + "/run/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? EBUSY : errno;
    *lock = std::move(file);
    return 0;
}

}  // namespace rovusim
