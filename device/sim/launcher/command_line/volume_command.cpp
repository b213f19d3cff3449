// rovu-sim volume: writes or reads a volume.

#include "launcher/command_line/arguments.h"
#include "launcher/command_line/commands.h"
#include "launcher/command_line/usage.h"
#include "launcher/message.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/state_lock.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/volume_store.h"
#include "util/descriptor.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace rovusim {
namespace {

int readAll(const char* path, std::string* bytes) {
    return readTextFile(strcmp(path, "-") == 0 ? "/dev/stdin" : path, bytes);
}

int putVolume(const std::string& state, const std::string& name, const char* path) {
    std::string bytes;
    if (int rc = readAll(path, &bytes); rc != 0) return cannot("read", path, rc);
    const int rc = writeVolume(state, name, bytes);
    if (rc == ENOENT) complain(state + " has no volume " + name);
    if (rc == EFBIG)
        complain("the volume " + name + " cannot hold " + std::to_string(bytes.size()) + " bytes");
    if (rc != 0 && rc != ENOENT && rc != EFBIG) cannot("write the volume", name, rc);
    return rc;
}

int getVolume(const std::string& state, const std::string& name, const char* path) {
    std::string bytes;
    const int rc = readVolume(state, name, &bytes);
    if (rc == ENOENT) complain(state + " has no volume " + name);
    if (rc != 0 && rc != ENOENT) cannot("read the volume", name, rc);
    if (rc != 0) return rc;
    if (strcmp(path, "-") == 0) return writeFully(STDOUT_FILENO, bytes.data(), bytes.size());
    zem::Descriptor file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.isOpen()) return cannot("write", path, errno);
    if (int failed = writeFully(file.get(), bytes.data(), bytes.size()); failed != 0)
        return cannot("write", path, failed);
    return 0;
}

}  // namespace

int volumeCommand(int argc, char** argv) {
    int exitStatus = 0;
    if (!isPlainCall(argc, argv, 4, kVolumeUsage, &exitStatus)) return exitStatus;
    const std::string direction = argv[1];
    if (direction != "put" && direction != "get") return misuse(kVolumeUsage);
    Device device;
    if (int rc = loadDevice(argv[2], &device); rc != 0)
        return exitFor(cannot("read the device in", argv[2], rc));
    if (direction == "get") return exitFor(getVolume(argv[2], argv[3], argv[4]));
    zem::Descriptor lock;
    if (int rc = lockDevice(argv[2], &lock); rc != 0) return exitFor(cannot("take", argv[2], rc));
    return exitFor(putVolume(argv[2], argv[3], argv[4]));
}

}  // namespace rovusim
