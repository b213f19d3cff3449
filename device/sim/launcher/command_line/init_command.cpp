// rovu-sim init and restart: make a device, and simulate its boot.

#include "host/digests.h"
#include "launcher/command_line/commands.h"
#include "launcher/host_program.h"
#include "launcher/run/device_run.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/volume_store.h"
#include "ubi_tools/ref_checksums.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace rovusim {
namespace {

struct DeviceFile {
    const char* option;
    std::string source;  // empty: not given
    const char* pathOnDevice;
    std::string bytes;
};

int readSources(std::vector<DeviceFile>* files) {
    for (DeviceFile& file : *files) {
        if (file.source.empty()) continue;
        if (int rc = readTextFile(file.source, &file.bytes); rc != 0)
            return cannot(std::string("read the file of ") + file.option + ",", file.source, rc);
    }
    return 0;
}

int putFiles(const std::string& stateDir, const std::vector<DeviceFile>& files) {
    for (const DeviceFile& file : files) {
        if (file.source.empty()) continue;
        if (int rc = putDeviceFile(stateDir, file.pathOnDevice, file.bytes); rc != 0)
            return cannot("write", file.pathOnDevice, rc);
    }
    return 0;
}

// As the factory leaves them: with what it has flashed. An overlay changes, and has no reference.
int writeReferenceFiles(const std::string& stateDir) {
    RefChecksumList list;
    for (const char* volume : {"k0", "k0_root", "k1", "k1_root"}) {
        std::string bytes;
        if (int rc = readVolume(stateDir, volume, &bytes); rc != 0)
            return cannot("read the volume", volume, rc);
        setRefChecksum(&list, volume, hexMd5(bytes));
    }
    for (const char* path : {"/app0/.ubiRefChk1", "/app0/.ubiRefChk2"}) {
        if (int rc = writeRefFile(list, outsidePath(stateDir, path)); rc != 0)
            return cannot("write", path, rc);
    }
    return 0;
}

int resolveRoot(std::string* root) {
    char resolved[PATH_MAX];
    if (root->empty() || *root == kHostRoot) return 0;
    if (realpath(root->c_str(), resolved) == nullptr) return cannot("use the root file system", *root, errno);
    *root = resolved;
    std::error_code error;
    const std::filesystem::file_type kind = std::filesystem::status(resolved, error).type();
    if (kind == std::filesystem::file_type::directory || kind == std::filesystem::file_type::regular)
        return 0;
    complain("--root, " + *root + ": neither a folder nor a regular file");
    return EINVAL;
}

// All files of the options are read before anything is made, and an incomplete device is removed: the next
// attempt would find it and refuse.
int makeDevice(const InitOptions& options) {
    const std::string& state = options.stateDir;
    std::vector<DeviceFile> files = {{"--key", options.key, "/etc/ssh/rovu_pub.pem", ""},
                                     {"--preshared", options.preshared, "/app0/secrets/rovu/preshared", ""}};
    if (int rc = readSources(&files); rc != 0) return rc;
    DeviceOptions device = options.device;
    if (int rc = resolveRoot(&device.root); rc != 0) return rc;
    const int rc = createDevice(state, device);
    if (rc == EEXIST)
        complain(state + " already exists, and is unchanged; name another directory, or remove it first");
    if (rc == ENOSPC)
        complain("no room for the device's volumes: too few erase blocks (--lebs), or a full disk");
    if (rc != 0 && rc != EEXIST && rc != ENOSPC) cannot("make the device", state, rc);
    if (rc != 0) return rc;
    int failed = putFiles(state, files);
    if (failed == 0) failed = writeReferenceFiles(state);
    if (failed == 0) failed = prepareRoot(state);
    if (failed != 0) removeDevice(state);
    return failed;
}

}  // namespace

int initCommand(const InitOptions& options) {
    return makeDevice(options) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int restartCommand(const std::string& stateDir) {
    std::string why;
    if (restartDevice(stateDir, &why) == 0) return EXIT_SUCCESS;
    complain(stateDir + " does not restart: " + why);
    return EXIT_FAILURE;
}

}  // namespace rovusim
