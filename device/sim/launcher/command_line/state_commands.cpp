// rovu-sim show, calls and volume: look into a device.

#include "host/digests.h"
#include "host/printable.h"
#include "launcher/command_line/commands.h"
#include "launcher/host_program.h"
#include "rovu_sim/boot_env.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/volume_store.h"
#include "util/descriptor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace rovusim {
namespace {

constexpr size_t kDigestChars = 32;  // of an MD5
constexpr const char* kReferenceFiles[] = {
    "/app0/.ubiRefChk1",     "/app0/.ubiRefChk2",     "/app0/.ubiRefChk1.bak",
    "/app0/.ubiRefChk2.bak", "/app0/.ubiRefChk1.new", "/app0/.ubiRefChk2.new",
};

// The MD5 that the first reference file has for a volume; empty if it has none.
std::string referenceFor(const std::string& stateDir, const std::string& volume) {
    std::string text;
    if (readDeviceFile(outsidePath(stateDir, kReferenceFiles[0]), &text) != 0) return "";
    for (const std::string& line : splitLines(text)) {
        if (line.size() > kDigestChars && line.substr(kDigestChars) == " " + volume)
            return line.substr(0, kDigestChars);
    }
    return "";
}

void showVersions(const std::string& stateDir, const Device& device) {
    std::string kernel = "?";
    std::string rootfs = "?";
    kernelReleaseInUse(stateDir, &kernel);
    rootfsVersionInUse(stateDir, &rootfs);
    printf("model         %s\n", device.model.c_str());
    printf("active set    %u\n", device.runningSet);
    printf("kernel        %s\n", printable(kernel).c_str());
    printf("rootfs        %s\n", printable(rootfs).c_str());
}

void showBootSwitch(const std::string& stateDir) {
    std::string value;
    unsigned set = 0;
    if (getBootVariable(stateDir, "bootswitcher", &value) != 0) {
        printf("bootswitcher  missing\n");
    } else if (setToBoot(stateDir, &set) != 0) {
        printf("bootswitcher  %s (not a hexadecimal number)\n", printable(value).c_str());
    } else {
        printf("bootswitcher  %s (the next boot starts set %u)\n", printable(value).c_str(), set);
    }
    if (rebootRequested(stateDir)) printf("reboot        requested\n");
}

void showVolume(const std::string& stateDir, const Volume& volume) {
    std::string bytes;
    const std::string md5 = readVolume(stateDir, volume.name, &bytes) == 0 ? hexMd5(bytes) : "?";
    const std::string reference = referenceFor(stateDir, volume.name);
    std::string remark = printable(versionInVolume(stateDir, volume.name));
    if (!remark.empty()) remark = "  version " + remark;
    if (volume.updating) remark += "  UPDATE UNFINISHED";
    if (!reference.empty()) remark += reference == md5 ? "  as in reference" : "  DIFFERS FROM REFERENCE";
    printf("%3u  %-10s  %-7s  %5u  %9llu  %s%s\n", volume.id, printable(volume.name).c_str(),
           volume.dynamic ? "dynamic" : "static", volume.lebs, static_cast<unsigned long long>(volume.bytes),
           md5.c_str(), remark.c_str());
}

int showVolumes(const std::string& stateDir) {
    std::vector<Volume> volumes;
    uint32_t left = 0;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return cannot("read the volumes of", stateDir, rc);
    if (int rc = freeLebs(stateDir, &left); rc != 0) return cannot("read the volumes of", stateDir, rc);
    printf("\n id  name        type      LEBs      bytes  MD5\n");
    for (const Volume& volume : volumes)
        showVolume(stateDir, volume);
    printf("%u LEBs of %u bytes are free\n", left, kLebBytes);
    return 0;
}

void showReferenceFiles(const std::string& stateDir) {
    for (const char* path : kReferenceFiles) {
        std::string text;
        const int rc = readDeviceFile(outsidePath(stateDir, path), &text);
        // The companions are temporary; only the two files themselves are reported missing.
        const bool companion = std::string(path).size() > std::string(kReferenceFiles[0]).size();
        if (rc == ENOENT && companion) continue;
        printf("\n%s%s\n", path, rc == 0 ? "" : rc == ENOENT ? ": missing" : ": cannot be read");
        for (const std::string& line : splitLines(text))
            printf("    %s\n", printable(line).c_str());
    }
}

int readAll(const std::string& path, std::string* bytes) {
    return readTextFile(path == "-" ? "/dev/stdin" : path, bytes);
}

int putVolume(const std::string& state, const std::string& name, const std::string& path) {
    std::string bytes;
    if (int rc = readAll(path, &bytes); rc != 0) return cannot("read", path, rc);
    const int rc = writeVolume(state, name, bytes);
    if (rc == ENOENT) complain(state + " has no volume " + name);
    if (rc == EFBIG)
        complain("the volume " + name + " cannot hold " + std::to_string(bytes.size()) + " bytes");
    if (rc != 0 && rc != ENOENT && rc != EFBIG) cannot("write the volume", name, rc);
    return rc;
}

int getVolume(const std::string& state, const std::string& name, const std::string& path) {
    std::string bytes;
    const int rc = readVolume(state, name, &bytes);
    if (rc == ENOENT) complain(state + " has no volume " + name);
    if (rc != 0 && rc != ENOENT) cannot("read the volume", name, rc);
    if (rc != 0) return rc;
    if (path == "-") return writeFully(STDOUT_FILENO, bytes.data(), bytes.size());
    zem::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.isOpen()) return cannot("write", path, errno);
    if (int failed = writeFully(file.get(), bytes.data(), bytes.size()); failed != 0)
        return cannot("write", path, failed);
    return 0;
}

// Puts `command` through with the device that must be there. Returns the exit status.
template <class Command>
int withDevice(const std::string& stateDir, const Command& command) {
    Device device;
    if (int rc = loadDevice(stateDir, &device); rc != 0) {
        cannot("read the device in", stateDir, rc);
        return EXIT_FAILURE;
    }
    return command(device) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int listCalls(const CallsOptions& options) {
    const std::string& state = options.stateDir;
    std::vector<Call> calls;
    if (options.clear) return clearCalls(state);
    if (int rc = options.last ? readCallsOfLastRun(state, &calls) : readCalls(state, &calls); rc != 0)
        return cannot("read the call log of", state, rc);
    for (const Call& call : calls) {
        const std::string number = call.number == 0 ? "-" : std::to_string(call.number);
        printf("%4s  %-30s  %s\n", number.c_str(), call.state.c_str(), call.line.c_str());
    }
    return 0;
}

}  // namespace

int showCommand(const std::string& stateDir) {
    return withDevice(stateDir, [&stateDir](const Device& device) {
        showVersions(stateDir, device);
        showBootSwitch(stateDir);
        const int rc = showVolumes(stateDir);
        if (rc == 0) showReferenceFiles(stateDir);
        return rc;
    });
}

int callsCommand(const CallsOptions& options) {
    return withDevice(options.stateDir, [&options](const Device&) { return listCalls(options); });
}

int volumeCommand(const VolumeOptions& options) {
    return withDevice(options.stateDir, [&options](const Device&) {
        if (options.direction == "get") return getVolume(options.stateDir, options.name, options.file);
        zem::Descriptor lock;
        if (int rc = lockDevice(options.stateDir, &lock); rc != 0)
            return cannot("take", options.stateDir, rc);
        return putVolume(options.stateDir, options.name, options.file);
    });
}

}  // namespace rovusim
