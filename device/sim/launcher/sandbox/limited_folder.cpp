#include "launcher/sandbox/limited_folder.h"

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

// What is neither a file, a link nor a folder, such as a socket, does not outlive a run.
int copyFiles(const std::string& from, const std::string& to) {
    std::error_code error;
    for (fs::directory_iterator entry(from, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const fs::file_status kind = entry->symlink_status(error);
        if (error) break;
        if (!fs::is_regular_file(kind) && !fs::is_directory(kind) && !fs::is_symlink(kind)) continue;
        const std::string target = to + "/" + entry->path().filename().string();
        // A script may have taken every right; as root inside it had them nevertheless.
        if (!fs::is_symlink(kind))
            fs::permissions(entry->path(), kind.permissions() | fs::perms::owner_all, error);
        if (error) break;
        if (!fs::is_directory(kind)) {
            fs::copy(entry->path(), target, fs::copy_options::copy_symlinks, error);
        } else if (fs::create_directory(target, error); !error) {
            error.assign(copyFiles(entry->path().string(), target), std::generic_category());
        }
        if (error || fs::is_symlink(kind)) continue;
        for (const fs::path& both : {fs::path(target), entry->path()})
            fs::permissions(both, kind.permissions(), error);
    }
    return error.value();
}

}  // namespace

int mountLimitedFolder(const LimitedFolder& folder, zem::Descriptor* tmpfs) {
    const zem::Descriptor settings(fsopen("tmpfs", FSOPEN_CLOEXEC));
    const std::string size = std::to_string(folder.bytes);
    if (!settings.isOpen() || fsconfig(settings.get(), FSCONFIG_SET_STRING, "source", "tmpfs", 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_SET_STRING, "size", size.c_str(), 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_SET_STRING, "mode", "1777", 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        return cannot("make a tmpfs of", size + " bytes", errno);
    tmpfs->reset(fsmount(settings.get(), FSMOUNT_CLOEXEC, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV));
    if (!tmpfs->isOpen()) return cannot("make a tmpfs of", size + " bytes", errno);
    if (move_mount(tmpfs->get(), "", AT_FDCWD, folder.mountedOn.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        return cannot("mount a tmpfs on", folder.mountedOn, errno);
    return 0;
}

int fillLimitedFolder(int tmpfs, const std::string& outside) {
    const int rc = copyFiles(outside, pathOfLimited(tmpfs));
    return rc == 0 ? 0 : cannot("fill the device's folder from", outside, rc);
}

int keepLimitedFolder(int tmpfs, const std::string& outside) {
    int rc = emptyDirectory(outside);
    if (rc == 0) rc = copyFiles(pathOfLimited(tmpfs), outside);
    return rc == 0 ? 0 : cannot("keep the device's files in", outside, rc);
}

std::string pathOfLimited(int tmpfs) {
    return "/proc/self/fd/" + std::to_string(tmpfs) + "/.";
}

}  // namespace rovusim
