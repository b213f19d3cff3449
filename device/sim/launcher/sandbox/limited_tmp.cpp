#include "launcher/sandbox/limited_tmp.h"

#include "launcher/message.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <system_error>

namespace rovusim {
namespace {

namespace fs = std::filesystem;

int copyFiles(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    return error.value();
}

}  // namespace

int openLimitedTmp(const std::string& stateDir, uint64_t bytes, zem::Descriptor* tmpfs) {
    zem::Descriptor settings(fsopen("tmpfs", FSOPEN_CLOEXEC));
    const std::string size = std::to_string(bytes);
    if (!settings.isOpen() || fsconfig(settings.get(), FSCONFIG_SET_STRING, "size", size.c_str(), 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_SET_STRING, "mode", "1777", 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        return cannot("make a tmpfs of", size + " bytes", errno);
    tmpfs->reset(fsmount(settings.get(), FSMOUNT_CLOEXEC, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV));
    if (!tmpfs->isOpen()) return cannot("make a tmpfs of", size + " bytes", errno);
    const int rc = copyFiles(stateDir + "/tmp", pathOfLimitedTmp(tmpfs->get()));
    return rc == 0 ? 0 : cannot("fill the device's /tmp of", size + " bytes", rc);
}

int mountLimitedTmp(int tmpfs, const std::string& target) {
    if (move_mount(tmpfs, "", AT_FDCWD, target.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        return cannot("mount a tmpfs on", target, errno);
    return 0;
}

int keepLimitedTmp(int tmpfs, const std::string& stateDir) {
    int rc = emptyDirectory(stateDir + "/tmp");
    if (rc == 0) rc = copyFiles(pathOfLimitedTmp(tmpfs), stateDir + "/tmp");
    return rc == 0 ? 0 : cannot("keep the files of", "the device's /tmp", rc);
}

std::string pathOfLimitedTmp(int tmpfs) {
    return "/proc/self/fd/" + std::to_string(tmpfs) + "/.";
}

}  // namespace rovusim
