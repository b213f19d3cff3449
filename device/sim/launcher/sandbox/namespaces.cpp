#include "launcher/sandbox/namespaces.h"

#include "launcher/host_program.h"
#include "launcher/sandbox/foreign_processor.h"
#include "launcher/web/web_server.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

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

// Unlike replaceTextFile: these files of the kernel are written in place, by one write.
int setKernelFile(const char* path, const std::string& text) {
    const zem::Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
    if (!file.isOpen()) return errno;
    return writeFully(file.get(), text.data(), text.size());
}

int failWithoutUserNamespace(int error) {
    cannot("make", "a user namespace", error);
    complain(
        "the kernel forbids it to this user; one of its settings user.max_user_namespaces, "
        "kernel.unprivileged_userns_clone and kernel.apparmor_restrict_unprivileged_userns does. Change that, "
        "or run this as root");
    return error;
}

// Root is the only user inside: it stands for the user who started the launcher.
int enterUserNamespace(bool* hasUserNamespace) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    *hasUserNamespace = unshare(CLONE_NEWUSER) == 0;
    int rc = *hasUserNamespace ? 0 : errno;
    if (!*hasUserNamespace && user == 0) return 0;
    if (rc == 0) rc = setKernelFile("/proc/self/setgroups", "deny");
    if (rc == 0) rc = setKernelFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    if (rc == 0) rc = setKernelFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    if (rc != 0) return failWithoutUserNamespace(rc);
    // A script that is root in one more namespace has more of the kernel to try.
    (void)setKernelFile("/proc/sys/user/max_user_namespaces", "0");
    return 0;
}

int mountLimitedFolder(const LimitedFolder& folder, zem::Descriptor* tmpfs) {
    const zem::Descriptor settings(fsopen("tmpfs", FSOPEN_CLOEXEC));
    const std::string size = std::to_string(folder.bytes);
    const std::string inodes = std::to_string(folder.bytes / 4096 + 1024);  // empty files have no bytes
    if (!settings.isOpen() || fsconfig(settings.get(), FSCONFIG_SET_STRING, "source", "tmpfs", 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_SET_STRING, "size", size.c_str(), 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_SET_STRING, "nr_inodes", inodes.c_str(), 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_SET_STRING, "mode", "1777", 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        return cannot("make a tmpfs of", size + " bytes", errno);
    tmpfs->reset(fsmount(settings.get(), FSMOUNT_CLOEXEC, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV));
    if (!tmpfs->isOpen()) return cannot("make a tmpfs of", size + " bytes", errno);
    if (move_mount(tmpfs->get(), "", AT_FDCWD, folder.mountedOn.c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0)
        return cannot("mount a tmpfs on", folder.mountedOn, errno);
    return 0;
}

// By descriptors: a path might have characters that the options of an overlay give a meaning.
int mountRootLayer(const RootLayer& root) {
    zem::Descriptor top;
    if (int rc = mountLimitedFolder(root.top, &top); rc != 0) return rc;
    for (const char* folder : {"upper", "work", "root"}) {
        if (mkdirat(top.get(), folder, 0755) != 0)
            return cannot("make a folder in", root.top.mountedOn, errno);
    }
    const zem::Descriptor tree(open(root.tree.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const zem::Descriptor settings(fsopen("overlay", FSOPEN_CLOEXEC));
    const auto set = [&settings](const char* option, const std::string& path) {
        return fsconfig(settings.get(), FSCONFIG_SET_STRING, option, path.c_str(), 0) == 0;
    };
    if (!tree.isOpen() || !settings.isOpen() || !set("lowerdir", pathOfLimited(tree.get())) ||
        !set("upperdir", pathOfLimited(top.get()) + "/upper") ||
        !set("workdir", pathOfLimited(top.get()) + "/work") ||
        fsconfig(settings.get(), FSCONFIG_SET_FLAG, "userxattr", nullptr, 0) != 0 ||
        fsconfig(settings.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0)
        return cannot("make an overlay of", root.tree, errno);
    const zem::Descriptor overlay(
        fsmount(settings.get(), FSMOUNT_CLOEXEC, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV));
    if (!overlay.isOpen() || move_mount(overlay.get(), "", top.get(), "root", MOVE_MOUNT_F_EMPTY_PATH) != 0)
        return cannot("mount an overlay of", root.tree, errno);
    return 0;
}

}  // namespace

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

int tryUserNamespace() {
    const pid_t child = fork();
    if (child == 0) _exit(geteuid() == 0 || unshare(CLONE_NEWUSER) == 0 ? 0 : errno);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return cannot("start", "a process", errno);
    return WEXITSTATUS(status) == 0 ? 0 : failWithoutUserNamespace(WEXITSTATUS(status));
}

int enterNamespaces(const NamespacePlan& plan, bool* hasUserNamespace, SandboxHandles* handles) {
    if (int rc = enterUserNamespace(hasUserNamespace); rc != 0) return rc;
    if (unshare(CLONE_NEWNS | (plan.usesHostNetwork ? 0 : CLONE_NEWNET)) != 0)
        return cannot("make", "namespaces of mounts and network", errno);
    // No mount from here on may propagate to the host.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return cannot("separate the mounts from", "the host's", errno);
    if (!plan.foreignProgram.empty()) {
        if (int rc = registerProcessorOf(plan.foreignProgram, *hasUserNamespace, plan.scratch); rc != 0)
            return rc;
    }
    for (const LimitedFolder& folder : plan.limited) {
        handles->limited.emplace_back();
        if (int rc = mountLimitedFolder(folder, &handles->limited.back()); rc != 0) return rc;
    }
    if (int rc = mountRootLayer(plan.root); rc != 0) return rc;
    return plan.usesHostNetwork ? 0 : openPorts(plan.served, &handles->listeners);
}

}  // namespace rovusim
